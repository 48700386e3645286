#pragma once

#include "engine/TWAction.h"

#include "lx/LXResult.h"

#include <QString>
#include <QStringList>
#include <QVariantList>

#include <memory>
#include <vector>

// The actions made from a list of saved states (a workflow file, the library, the "Workflow" preference),
// and what could not be used. Move-only: it owns its actions.
struct TWWorkflow {
    std::vector<std::unique_ptr<TWAction>> actions; // in workflow order
    // Elements left out: a class no action is registered under (kept by name, "" when the element names
    // none or is not a dictionary), in file order.
    QStringList skippedClasses;
    // Why the source gave no workflow at all (not a property list, not a list, unreadable); empty when it
    // was read, even if every element was skipped.
    QString message;

    QVariantList state() const;        // the actions' saved states, in order
    QVariantList instructions() const; // what a run receives: every action's instructions, inactive ones too
    bool isEmpty() const { return actions.empty(); }
};

// Workflow files: a property list whose root is an array of action saved states ("class", "active",
// "disclosed", "optionsDisclosed", "preview", "instructions"), one per action in workflow order, with no
// header or version. Written as XML, read as XML or binary.
namespace TWWorkflowFile {

inline const QString kExtension = QStringLiteral("twwf");

// True when the path's extension is exactly "twwf" (the library ignores "x.TWWF" as it ignores "x.txt").
bool hasWorkflowExtension(const QString& path);

// The saved states a file holds; an error naming the file when it cannot be read, is not a property list
// or its root is not an array. The elements are not checked.
LXResult<QVariantList> readStates(const QString& path);

// Never fails: a file that cannot be read as an array gives an empty workflow with the reason in
// `message`; elements whose class is unknown are skipped and the others load.
TWWorkflow read(const QString& path);

// Makes an action of each element's "class" through TWActionRegistry and applies the element with
// setState(). Elements of unknown classes are skipped.
TWWorkflow fromStates(const QVariantList& states);

// The instructions of a run of these saved states, in order (unknown classes left out).
QVariantList instructionsFromStates(const QVariantList& states);

// Writes the saved states as an XML property list; replaces an existing file whole or not at all.
LXStatus write(const QString& path, const QVariantList& states);

} // namespace TWWorkflowFile
