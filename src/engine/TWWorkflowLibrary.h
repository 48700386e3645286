#pragma once

#include "lx/LXResult.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

class TWPreferences;

// The library of saved workflows beside the editor: two groups, "Factory" (the workflows that come with
// the program, read-only) and "User" (the files in the support folder's "Workflows", which the user adds,
// renames, removes and exports). No drawing: the window's library list shows groups() and calls these
// commands. Main thread only.
//
// The user group always shows what is on disk: every command re-reads the folder, whether it succeeded
// or not. Files are moved, copied and deleted without asking; a name conflict is never resolved by
// overwriting.
class TWWorkflowLibrary {
public:
    enum Group { Factory = 0, User = 1 };

    struct Item {
        QString title;         // a workflow's file name without ".twwf", or "Factory" / "User" for a group
        QVariantList workflow; // a workflow's saved states as its file holds them (empty when unreadable)
        QList<Item> items;     // a group's workflows
        bool group = false;
        QString parentTitle; // a workflow's group: "Factory" or "User"
        QString path;        // a workflow's file
        QString problem;     // why a workflow's file could not be read, empty when it could

        bool isGroup() const { return group; }
        // The dictionary form: "title" and either "workflow" or "items".
        QVariantMap toMap() const;
    };

    // Where the groups come from. Empty means the default: for the factory, a "clipwright/workflows"
    // folder in the XDG data folders if there is one, else the compiled-in ":/workflows"; for the user,
    // TWSupportFolders::workflowsDirectory().
    struct Folders {
        QString factory;
        QString user;
    };

    static inline const QString kFactoryExpandedKey = QStringLiteral("Workflows Factory Expanded");
    static inline const QString kUserExpandedKey = QStringLiteral("Workflows User Expanded");

    // Reads the factory workflows once and the user folder now. Preferences default to the shared ones.
    explicit TWWorkflowLibrary(TWPreferences& preferences, Folders folders = {});

    const QList<Item>& groups() const { return m_groups; } // "Factory", then "User"
    const Item& group(Group group) const { return m_groups[group]; }
    QString userDirectory() const { return m_folders.user; }
    QString factoryDirectory() const { return m_folders.factory; }

    // Re-reads the user folder (files ending in ".twwf" only, in name order).
    void updateUserWorkflows();
    // The user folder joined with the name plus ".twwf".
    QString pathForWorkflowName(const QString& name) const;
    // Only workflows of the "User" group can be renamed, removed and saved elsewhere. The commands below
    // may be given one of groups()' own items: they read it before the group is re-read.
    static bool isEditable(const Item& item);

    // Writes the saved states into the user folder as "Untitled", or "Untitled 1", "Untitled 2" ... when
    // taken, and expands the user group. Returns the new file's path, or an empty path (and no file) when
    // the states are empty.
    LXResult<QString> addWorkflow(const QVariantList& states);
    // Moves the item's file to the new name's path; refused for factory items, for a name that is empty or
    // holds "/", and when another workflow has that name. The same name does nothing.
    LXStatus renameWorkflow(const Item& item, const QString& newName);
    LXStatus removeWorkflow(const Item& item); // deletes the file at once
    // Copies a workflow file into the user folder under its own name; fails when that name is taken.
    LXStatus loadWorkflow(const QString& path);
    // Writes the item's saved states to the path (".twwf" added when missing); refused for factory items.
    LXStatus saveWorkflow(const Item& item, const QString& path) const;

    // Files dropped on the list: accepted only when every one ends in ".twwf".
    static bool acceptsDroppedFiles(const QStringList& paths);
    // Copies each into the user folder under its own name; a refused drop copies nothing. Copies that fail
    // (a name taken) leave the others done; the error names each failure.
    LXStatus dropFiles(const QStringList& paths);

    bool isExpanded(Group group) const;
    void setExpanded(Group group, bool expanded);

private:
    static QList<Item> readFolder(const QString& folder, const QString& groupTitle);
    TWPreferences& preferences() const { return *m_preferences; }

    Folders m_folders;
    TWPreferences* m_preferences; // remembers which groups are open
    QList<Item> m_groups;
};
