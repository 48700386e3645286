#pragma once

#include <QWidget>

class QLabel;
class QListWidget;
class QProgressBar;
class QPushButton;
class TWRunController;
class TWWorkspace;
struct TWFileReport;

// A run as it goes: its title ("Normalizing...", then "Process successful", "Process cancelled",
// "Error: ..."), a bar over the files, the file being processed, Stop (keep what was done) and Cancel
// (put back the files changed in place), and a line for every file that failed or was skipped, with the
// reason, where it happened. Everything arrives through the run controller's signals on the main thread,
// so the window stays free while the work thread runs.
class TWProgressView final : public QWidget {
    Q_OBJECT
public:
    TWProgressView(TWWorkspace& workspace, TWRunController& runs, QWidget* parent = nullptr);

    QString title() const;
    QStringList problems() const; // the lines of the files that failed or were skipped

private:
    void began();
    void reported(const TWFileReport& report);
    void ended(const QString& title, bool failed);

    TWWorkspace& m_workspace;
    QLabel* m_title = nullptr;
    QLabel* m_file = nullptr;
    QProgressBar* m_bar = nullptr;
    QPushButton* m_stop = nullptr;
    QPushButton* m_cancel = nullptr;
    QListWidget* m_problems = nullptr;
};
