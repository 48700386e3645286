#include "model/TWWorkspacePanels.h"

#include "model/TWWorkspace.h"
#include "platform/TWDesktop.h"
#include "platform/TWInteraction.h"
#include "platform/TWPreferences.h"

#include <QFileInfo>

namespace {

const QString kOtherEditorKey = QStringLiteral("Other Editor Name");
// FIXME: a guess at the editor's download page; replace it with the address its makers publish.
const QString kRingletDownloadPage = QStringLiteral("https://www.corvanaworks.com/ringlet/download");

// The copy panel's check box is made once with the window and so remembers its state.
bool g_copyIntoNewGroup = false;

TWOpenPanelOptions destinationPanel() {
    TWOpenPanelOptions options;
    options.title = QStringLiteral("Choose destination directory");
    options.prompt = QStringLiteral("Choose");
    options.chooseFiles = false;
    options.chooseDirectories = true;
    options.canCreateDirectories = true;
    return options;
}

// What "Other Editor Name" stores for a chosen application: a desktop file by its id (the name without
// ".desktop"), which TWDesktop finds again wherever it is installed; a program by its path, since a program
// has no name to be found by.
QString editorName(const QString& chosen) {
    const QFileInfo info(chosen);
    if (info.suffix() == QLatin1String("desktop")) return info.completeBaseName();
    return info.absoluteFilePath();
}

} // namespace

namespace TWWorkspacePanels {

QList<TWEntryPtr> addToList(TWWorkspace& workspace) {
    TWOpenPanelOptions options;
    options.chooseDirectories = true;
    options.allowsMultipleSelection = true;
    options.types = {QStringLiteral("clipwright"), QStringLiteral("aif"), QStringLiteral("aiff"),
                     QStringLiteral("wav"),        QStringLiteral("sd2"), QStringLiteral("sd"),
                     QStringLiteral("au"),         QStringLiteral("caf"), QStringLiteral("rex"),
                     QStringLiteral("rx2"),        QStringLiteral("rcy")};
    const QStringList paths = TWInteraction::current().runOpenPanel(options);
    if (paths.isEmpty()) return {};
    return workspace.addFilesAfterSelectedEntry(paths);
}

bool moveTo(TWWorkspace& workspace) {
    const QStringList chosen = TWInteraction::current().runOpenPanel(destinationPanel());
    if (chosen.isEmpty()) return false;
    workspace.moveTo(chosen.first());
    return true;
}

bool copyTo(TWWorkspace& workspace) {
    TWOpenPanelOptions options = destinationPanel();
    options.checkBoxTitle = QStringLiteral("Put the copies in a new group");
    options.checkBoxChecked = g_copyIntoNewGroup;
    const TWOpenPanelAnswer answer = TWInteraction::current().runOpenPanelWithCheckBox(options);
    g_copyIntoNewGroup = answer.checkBoxChecked;
    if (answer.paths.isEmpty()) return false;
    workspace.copyTo(answer.paths.first(), answer.checkBoxChecked);
    return true;
}

bool openRinglet(TWWorkspace& workspace) {
    const QString application = TWDesktop::findApplication(QStringLiteral("Ringlet"));
    if (!application.isEmpty()) {
        workspace.openWithApplication(application);
        return true;
    }
    TWAlert alert;
    alert.title = QStringLiteral("Ringlet not installed");
    alert.message = QStringLiteral(
        "A free version of Ringlet is available from Corvana Works. Would you like to download it now?");
    alert.buttons = {QStringLiteral("Download"), QStringLiteral("Later")};
    if (TWInteraction::current().runAlert(alert) == 0) TWDesktop::openUrl(kRingletDownloadPage);
    return false;
}

void openOtherEditor(TWWorkspace& workspace) {
    const QString editor = TWPreferences::shared().stringValue(kOtherEditorKey);
    if (editor.isEmpty()) {
        changeOtherEditor(workspace);
        return;
    }
    workspace.openWithApplication(editor);
}

bool changeOtherEditor(TWWorkspace& workspace) {
    TWOpenPanelOptions options;
    options.title = QStringLiteral("Choose Audio File Editor");
    options.prompt = QStringLiteral("Choose");
    options.directory = QStringLiteral("/usr/share/applications");
    options.types = {QStringLiteral("desktop")};
    const QStringList chosen = TWInteraction::current().runOpenPanel(options);
    if (chosen.isEmpty()) return false;
    const QString editor = editorName(chosen.first());
    TWPreferences::shared().setValue(kOtherEditorKey, editor);
    workspace.openWithApplication(editor);
    return true;
}

} // namespace TWWorkspacePanels
