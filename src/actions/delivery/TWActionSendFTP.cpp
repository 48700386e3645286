// Send via FTP: each file is stored under its own name in a folder of an FTP server, the folders made
// when missing. The files themselves are only read.

#include "actions/delivery/TWUpload.h"
#include "engine/TWActionRegistry.h"

namespace {

const TWKey<QString> kServer{QStringLiteral("server"), std::nullopt,
                             QStringLiteral("the FTP server's name or address, with :PORT when not 21")};
const TWKey<QString> kUsername{QStringLiteral("username"), QString(),
                               QStringLiteral("the user name; none logs in anonymously")};
const TWKey<QString> kPassword{QStringLiteral("password"), QString(),
                               QStringLiteral("the password (a saved workflow holds it as plain text)")};
const TWKey<QString> kPath{QStringLiteral("path"), QString(),
                           QStringLiteral("the folder on the server (made when missing); none: the folder "
                                          "the user logs in to")};

} // namespace

class TWActionSendFTP : public TWUploadAction {
public:
    QString className() const override { return QStringLiteral("TWActionSendFTP"); }
    QString name() const override { return QStringLiteral("Send via FTP"); }
    QString verb() const override { return QStringLiteral("Sending via FTP..."); }
    QList<TWInstructionKey> instructionKeys() const override {
        return {kServer, kUsername, kPassword, kPath};
    }
    QStringList requiredInstructionKeys() const override { return {kServer.name}; }

    QList<TWControl> panelControls() const override {
        const auto field = [](const TWInstructionKey& key, const char* label, TWControlKind kind) {
            return TWControl{kind, key.name, QString::fromLatin1(label), 0, 0, 0, {}, {}};
        };
        return {field(kServer, "Server", TWControlKind::Field),
                field(kUsername, "User Name", TWControlKind::Field),
                field(kPassword, "Password", TWControlKind::SecureField),
                field(kPath, "Path", TWControlKind::Field)};
    }

protected:
    QString processingPhase() const override { return QStringLiteral("Sending via FTP"); }

    LXResult<TWUploadTarget> target(const QVariantMap& instructions) const override {
        QString server = kServer(instructions).trimmed();
        if (server.startsWith(QStringLiteral("ftp://"), Qt::CaseInsensitive)) server.remove(0, 6);
        if (server.endsWith(u'/')) server.chop(1);
        if (server.isEmpty())
            return LXError(LXInvalidParameter, QStringLiteral("no FTP server is given (--server)"));
        return TWUploadTarget{QStringLiteral("ftp://%1/").arg(server), TWEscapedFolders(kPath(instructions)),
                              false, kUsername(instructions), kPassword(instructions)};
    }
};

TW_REGISTER_ACTION(TWActionSendFTP)
