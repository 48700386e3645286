// Send to My iDisk: each file is copied into a folder of the user's WebDAV storage, whose address and
// account are the preferences "WebDAV Server", "WebDAV User" and "WebDAV Password". Missing folders are
// made first, one level at a time (a PUT into a missing folder is refused). The files are only read.

#include "actions/delivery/TWUpload.h"
#include "engine/TWActionRegistry.h"
#include "engine/TWActionRun.h"

#include "platform/TWPreferences.h"

namespace {

const TWKey<QString> kPath{
    QStringLiteral("path"), QString(),
    QStringLiteral("the folder on the WebDAV server (made when missing); none: the top "
                   "of the account")};

const QString kServerPreference = QStringLiteral("WebDAV Server");
const QString kUserPreference = QStringLiteral("WebDAV User");
const QString kPasswordPreference = QStringLiteral("WebDAV Password");

} // namespace

class TWActionSendiDisk : public TWUploadAction {
public:
    QString className() const override { return QStringLiteral("TWActionSendiDisk"); }
    QString name() const override { return QStringLiteral("Send to My iDisk"); }
    QString verb() const override { return QStringLiteral("Sending to iDisk..."); }
    QList<TWInstructionKey> instructionKeys() const override { return {kPath}; }
    QStringList requiredInstructionKeys() const override { return {}; }

    QList<TWControl> panelControls() const override {
        return {{TWControlKind::Field, kPath.name, QStringLiteral("Folder"), 0, 0, 0, {}, {}}};
    }

protected:
    QString processingPhase() const override { return QStringLiteral("Sending to my iDisk"); }

    LXResult<TWUploadTarget> target(const QVariantMap& instructions) const override {
        const TWPreferences& preferences = run().context().preferences;
        QString server = preferences.stringValue(kServerPreference).trimmed();
        if (server.isEmpty())
            return LXError(
                LXInvalidParameter,
                QStringLiteral("no WebDAV account is set: set the preferences \"%1\" (the address, "
                               "such as https://dav.example.com/files/), \"%2\" and \"%3\"")
                    .arg(kServerPreference, kUserPreference, kPasswordPreference));
        if (!server.contains(QStringLiteral("://"))) server.prepend(QStringLiteral("https://"));
        if (!server.startsWith(QStringLiteral("http://"), Qt::CaseInsensitive) &&
            !server.startsWith(QStringLiteral("https://"), Qt::CaseInsensitive))
            return LXError(LXInvalidParameter,
                           QStringLiteral("the preference \"%1\" is no http:// or https:// address")
                               .arg(kServerPreference));
        if (!server.endsWith(u'/')) server.append(u'/');
        return TWUploadTarget{server, TWEscapedFolders(kPath(instructions)), true,
                              preferences.stringValue(kUserPreference),
                              preferences.stringValue(kPasswordPreference)};
    }
};

TW_REGISTER_ACTION(TWActionSendiDisk)
