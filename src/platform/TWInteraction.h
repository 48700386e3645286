#pragma once

#include <QString>
#include <QStringList>

enum class TWAlertStyle { Informational, Warning, Critical };

struct TWAlert {
    TWAlertStyle style = TWAlertStyle::Informational;
    QString title; // e.g. "Move Failed Alert" text already looked up
    QString message;
    QStringList buttons;   // empty means one "OK"
    int defaultButton = 0; // what Return (or an empty answer) picks: a destructive question defaults to No
};

struct TWOpenPanelOptions {
    QString title, prompt, directory;
    bool chooseFiles = true, chooseDirectories = false, allowsMultipleSelection = false,
         canCreateDirectories = false;
    QStringList types; // extensions
    // A check box shown with the panel (no title: none) and its state when the panel opens.
    QString checkBoxTitle;
    bool checkBoxChecked = false;
};

struct TWOpenPanelAnswer {
    QStringList paths;            // empty when cancelled
    bool checkBoxChecked = false; // the check box's state when the panel closed
};

struct TWSavePanelOptions {
    QString title, prompt, directory, name, requiredExtension;
};

// How the program asks the user: Qt dialogs in the window, flags and terminal prompts on the command line,
// scripted answers in tests.
// May be called from the work thread: implementations block that thread until answered.
class TWInteraction {
public:
    virtual ~TWInteraction() = default;
    // The index of the chosen button. Threads other than the main one ask one at a time (two files made at
    // once may each have a question), so that no two questions are on the screen or the terminal at once.
    int runAlert(const TWAlert& alert);
    virtual QStringList runOpenPanel(const TWOpenPanelOptions& options) = 0; // empty when cancelled
    virtual QString runSavePanel(const TWSavePanelOptions& options) = 0;     // empty when cancelled
    // A panel with a check box. Implementations that show no check box need not override it: the box then
    // keeps the state it was given.
    virtual TWOpenPanelAnswer runOpenPanelWithCheckBox(const TWOpenPanelOptions& options);
    static TWInteraction&
    current(); // never null: a non-interactive default answers the default button / cancels
    static void setCurrent(TWInteraction* interaction); // not owned; nullptr restores the default

protected:
    virtual int showAlert(const TWAlert& alert) = 0;
};

// Answers without asking anyone: the default button, cancelled panels. What runs when nobody can be asked.
class TWDefaultInteraction : public TWInteraction {
public:
    QStringList runOpenPanel(const TWOpenPanelOptions& options) override;
    QString runSavePanel(const TWSavePanelOptions& options) override;

protected:
    int showAlert(const TWAlert& alert) override;
};
