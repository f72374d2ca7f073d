// A text preview helper that misbehaves on purpose, for the tests of the
// application's side. Its arguments are those of the real one (a
// connection name and the parent's process id); what it does comes from
// FAKE_TEXT_PREVIEW_MODE:
//   silent   never listens
//   exit     leaves at once
//   mute     listens and accepts, but never greets
//   version  greets with a protocol version nobody speaks
//   garbage  greets, then answers every request with bytes that are no frame
// and otherwise greets and answers "fake text of PATH".
#include "index/import/protocol.h"

#include <QCoreApplication>
#include <QLocalServer>
#include <QLocalSocket>
#include <QThread>

#include <cstdlib>
#include <memory>
#include <string>

using namespace trovara::index;

namespace {

void send(QLocalSocket& socket, MessageType type, const std::string& payload)
{
    const std::string frame = encodeFrame(type, payload);
    socket.write(frame.data(), static_cast<qint64>(frame.size()));
}

}  // namespace

int main(int argc, char* argv[])
{
    const char* variable = std::getenv("FAKE_TEXT_PREVIEW_MODE");
    const std::string mode = variable ? variable : "";
    if (argc != 3 || mode == "exit") {
        return 3;
    }
    if (mode == "silent") {
        QThread::sleep(60);
        return 0;
    }
    QCoreApplication app(argc, argv);
    QLocalServer server;
    QObject::connect(&server, &QLocalServer::newConnection, [&] {
        QLocalSocket* socket = server.nextPendingConnection();
        QObject::connect(socket, &QLocalSocket::disconnected, &app, &QCoreApplication::quit);
        if (mode == "mute") {
            return;
        }
        HelloMessage hello;
        if (mode == "version") {
            hello.version = 99;
        }
        send(*socket, MessageType::Hello, encodeHello(hello));
        auto reader = std::make_shared<FrameReader>(1 << 20);
        QObject::connect(socket, &QLocalSocket::readyRead, [socket, reader, mode] {
            const QByteArray bytes = socket->readAll();
            reader->append(std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
            while (true) {
                auto frame = reader->next();
                if (!frame || !*frame) {
                    return;
                }
                auto request = decodeImportRequest((*frame)->payload);
                if (!request) {
                    return;
                }
                if (mode == "garbage") {
                    socket->write("\x07\x00\x00\x00\x09 no frame at all", 22);
                    continue;
                }
                ImportResult result;
                result.id = request->id;
                result.text = "fake text of " + request->path;
                send(*socket, MessageType::Result, encodeImportResult(result));
            }
        });
    });
    if (!server.listen(QString::fromLocal8Bit(argv[1]))) {
        return 1;
    }
    return app.exec();
}
