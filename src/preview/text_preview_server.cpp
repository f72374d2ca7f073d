#include "preview/text_preview_server.h"

#include <QCoreApplication>
#include <QLocalSocket>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <memory>

namespace trovara::preview {

namespace {

// Requests are small: a path and a few names.
constexpr std::size_t kMaxRequest = 1 << 20;

void send(QLocalSocket& socket, index::MessageType type, const std::string& payload)
{
    const std::string frame = index::encodeFrame(type, payload);
    socket.write(frame.data(), static_cast<qint64>(frame.size()));
}

}  // namespace

TextPreviewServer::TextPreviewServer(TextPreviewManager& manager, index::HelloMessage hello, QObject* parent)
    : QObject(parent)
    , m_manager(manager)
    , m_hello(std::move(hello))
{
    m_server.setSocketOptions(QLocalServer::UserAccessOption);
    connect(&m_server, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = m_server.nextPendingConnection()) {
            serve(socket);
        }
    });
}

bool TextPreviewServer::listen(const QString& name, QString* error)
{
    if (m_server.listen(name)) {
        return true;
    }
    if (error) {
        *error = m_server.errorString();
    }
    return false;
}

void TextPreviewServer::watchParent(qint64 pid)
{
    auto* timer = new QTimer(this);
    connect(timer, &QTimer::timeout, this, [pid] {
        if (::kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) {
            QCoreApplication::quit();
        }
    });
    timer->start(1000);
}

void TextPreviewServer::serve(QLocalSocket* socket)
{
    connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    auto reader = std::make_shared<index::FrameReader>(kMaxRequest);
    connect(socket, &QLocalSocket::readyRead, socket, [this, socket, reader] {
        const QByteArray bytes = socket->readAll();
        reader->append(std::string_view(bytes.constData(), static_cast<std::size_t>(bytes.size())));
        while (true) {
            index::Expected<std::optional<index::Frame>> frame = reader->next();
            if (frame && !*frame) {
                return;  // the rest has not arrived yet
            }
            index::Expected<index::ImportRequest> request =
                frame && (*frame)->type == index::MessageType::Import
                    ? index::decodeImportRequest((*frame)->payload)
                    : index::Expected<index::ImportRequest>(index::Failure{});
            if (!request) {
                socket->disconnectFromServer();  // Quit, or what is no request
                return;
            }
            send(*socket, index::MessageType::Result,
                 index::encodeImportResult(toImportResult(m_manager.textContentsOfFile(request->path, nullptr, request->textLimit), request->id)));
        }
    });
    send(*socket, index::MessageType::Hello, index::encodeHello(m_hello));
}

}  // namespace trovara::preview
