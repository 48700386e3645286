#pragma once

#include "model/TWFileEntry.h"

#include <QHash>
#include <QTableWidget>

class TWRunController;
class TWWorkspace;

// The selected file's information, a row a field as `clipwright info` shows it. The fields the property
// actions write (text fields, MIDI and musical values) can be edited in place: an edit runs that action
// on the file, so it is undone like any other change, and the row shows the file's value once written
// (an edit the action refuses, a tempo of "fast", leaves the old one).
class TWDetailsView final : public QTableWidget {
    Q_OBJECT
public:
    TWDetailsView(TWWorkspace& workspace, TWRunController& runs, QWidget* parent = nullptr);

    void setEntry(const TWFileEntryPtr& entry); // nullptr: none
    // The class of the action that writes a field, or nothing when no action can.
    QString actionForKey(const QString& key) const { return m_writers.value(key); }

private:
    void reload();
    void edited(QTableWidgetItem* item);

    TWWorkspace& m_workspace;
    TWRunController& m_runs;
    TWFileEntryPtr m_entry;
    QHash<QString, QString> m_writers; // information key -> class of the action that sets it
    bool m_filling = false;
};
