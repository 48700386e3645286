#include "TestServers.h"

#include <QRegularExpression>

namespace {

// pyftpdlib on a port the system picks, which it prints; one user who may do everything in the root,
// uploads read at most argv[4] bytes a second (0: as fast as they come).
const char* const kFtpServer = R"(
import sys
from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import FTPHandler, ThrottledDTPHandler
from pyftpdlib.servers import FTPServer
root, user, password, rate = sys.argv[1:5]
FTPHandler.authorizer = DummyAuthorizer()
FTPHandler.authorizer.add_user(user, password, root, perm="elradfmwMT")
ThrottledDTPHandler.read_limit = int(rate)
FTPHandler.dtp_handler = ThrottledDTPHandler
server = FTPServer(("127.0.0.1", 0), FTPHandler)
print("listening on http://127.0.0.1:%d/" % server.address[1], file=sys.stderr, flush=True)
server.serve_forever()
)";

} // namespace

TestServer::TestServer(Kind kind, const QString& root, const QString& user, const QString& password,
                       int bytesPerSecond)
    : m_kind(kind) {
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    if (kind == Kind::Ftp)
        m_process.start("/usr/bin/python3",
                        {"-c", kFtpServer, root, user, password, QString::number(bytesPerSecond)});
    else
        m_process.start("rclone", {"serve", "webdav", root, "--addr", "127.0.0.1:0", "--user", user, "--pass",
                                   password, "--config", "/dev/null"});
    // Both say where they listen once they do.
    static const QRegularExpression listening(R"(http://127\.0\.0\.1:(\d+)/)");
    QByteArray said;
    while (m_process.waitForReadyRead(10000)) {
        said += m_process.readAll();
        if (const QRegularExpressionMatch found = listening.match(QString::fromUtf8(said));
            found.hasMatch()) {
            m_address = "127.0.0.1:" + found.captured(1);
            return;
        }
    }
}

TestServer::~TestServer() {
    kill();
}

void TestServer::kill() {
    if (m_process.state() == QProcess::NotRunning) return;
    m_process.kill();
    m_process.waitForFinished();
}
