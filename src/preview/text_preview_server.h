// The text preview helper's side (tools/trovara-text-preview): a local
// socket server that answers the application's TextPreviewUtility.
//
// It speaks the importer protocol's frames (docs/format/importer.md): on a
// new connection it greets with Hello (its importers), then answers each
// Import with a Result holding the text the preview shows
// (TextPreviewManager::textContentsOfFile: the helper chooses the importers
// itself, so the request's importer and MIME type are left empty), cut at
// the request's text limit when it has one. Requests
// are answered one at a time, in order. Quit, or anything that is no
// request, closes the connection.
//
// The helper lives as long as the process that started it: watchParent()
// ends the event loop once that process is gone.
//
// Thread safety: lives in the helper's main thread.
#pragma once

#include "index/import/protocol.h"
#include "preview/text_preview_manager.h"

#include <QLocalServer>
#include <QObject>

namespace trovara::preview {

class TextPreviewServer : public QObject {
    Q_OBJECT
public:
    TextPreviewServer(TextPreviewManager& manager, index::HelloMessage hello, QObject* parent = nullptr);

    // Listens under `name` (a name or an absolute socket path), for this
    // user only. False, with the reason in `error`, when it cannot.
    bool listen(const QString& name, QString* error = nullptr);

    // Quits the application's event loop when the process `pid` has ended.
    void watchParent(qint64 pid);

private:
    void serve(class QLocalSocket* socket);

    TextPreviewManager& m_manager;
    index::HelloMessage m_hello;
    QLocalServer m_server;
};

}  // namespace trovara::preview
