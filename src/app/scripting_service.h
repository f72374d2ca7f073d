// Scripting over D-Bus: the application and its documents on the session
// bus, as the service com.velmont.Trovara (docs/format/dbus.md).
//
//   /com/velmont/Trovara              com.velmont.Trovara.Application
//   /com/velmont/Trovara/Document/N   com.velmont.Trovara.Document
//
// A document gets the next number N when it opens and keeps it until it
// closes; numbers are not reused in the life of the process. The objects
// follow the delegate's documents; the logic stays in the delegate and the
// documents, the adaptors only translate (dbus_adaptors.h).
//
// The same service makes Trovara a single instance: a second `trovara`
// hands its files and URLs to the running one (forwardToRunningInstance())
// and exits.
//
// Main thread only.
#pragma once

#include "common/error.h"

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <functional>
#include <map>

namespace trovara::document {
class Document;
}

namespace trovara::app {

class ApplicationDelegate;
class ApplicationObject;
class DocumentObject;

class ScriptingService final : public QObject {
    Q_OBJECT

public:
    static constexpr const char* kServiceName = "com.velmont.Trovara";
    static constexpr const char* kObjectPath = "/com/velmont/Trovara";
    static constexpr const char* kDocumentPathPrefix = "/com/velmont/Trovara/Document/";
    static constexpr const char* kApplicationInterface = "com.velmont.Trovara.Application";
    static constexpr const char* kDocumentInterface = "com.velmont.Trovara.Document";
    // Errors Trovara answers besides the standard ones
    // (org.freedesktop.DBus.Error.InvalidArgs, …FileNotFound).
    static constexpr const char* kOpenFailedError = "com.velmont.Trovara.Error.OpenFailed";
    static constexpr const char* kSaveFailedError = "com.velmont.Trovara.Error.SaveFailed";
    static constexpr const char* kCannotStartError = "com.velmont.Trovara.Error.CannotStart";
    static constexpr const char* kNoSuchDocumentError = "com.velmont.Trovara.Error.NoSuchDocument";
    static constexpr const char* kNoFileManagerFolderError = "com.velmont.Trovara.Error.NoFileManagerFolder";

    // Handles a URL given to Trovara (a quick-search "trovara:" URL). Until
    // one is set, a URL is refused with an error.
    using UrlHandler = std::function<Status(const QString& url)>;

    explicit ScriptingService(ApplicationDelegate& delegate, QDBusConnection connection = QDBusConnection::sessionBus(),
                              QObject* parent = nullptr);
    ~ScriptingService() override;

    // Puts the objects on the bus and takes the service name. An error when
    // there is no session bus, or when another process owns the name (then
    // the objects are taken off again).
    Status registerService();
    bool isRegistered() const { return m_registered; }

    // A second instance's locations (absolute file or folder paths, URLs):
    // asks the instance that owns the service name to open them. True when
    // one did (the caller should exit); false when none runs or it did not
    // answer.
    static bool forwardToRunningInstance(const QStringList& locations,
                                         QDBusConnection connection = QDBusConnection::sessionBus());
    // Command-line arguments as locations: URLs as they are, paths made
    // absolute against `workingDirectory`.
    static QStringList locationsFromArguments(const QStringList& arguments, const QString& workingDirectory);

    void setUrlHandler(UrlHandler handler) { m_urlHandler = std::move(handler); }

    // The folder the file manager's front window shows, where the desktop
    // tells it; empty otherwise.
    using FileManagerFolderSource = std::function<QString()>;
    void setFileManagerFolderSource(FileManagerFolderSource source) { m_fileManagerFolder = std::move(source); }
    QString fileManagerFolder() const { return m_fileManagerFolder ? m_fileManagerFolder() : QString(); }

    // The delegate's documents and their object paths ("/" for none).
    QDBusObjectPath pathForDocument(document::Document* document) const;
    document::Document* documentForPath(const QString& path) const;

    // What the application object does (also for tests without a bus).
    ApplicationDelegate& delegate() const { return m_delegate; }
    // Opens files and folders and hands URLs to the URL handler; each
    // failure is presented. Then asks for the application's window to come
    // to the front.
    void openLocations(const QStringList& locations);

signals:
    // Bring the active window to the front (another instance was started).
    void activationRequested();

private:
    void documentOpened(document::Document* document);
    void documentWillClose(document::Document* document);

    ApplicationDelegate& m_delegate;
    QDBusConnection m_connection;
    ApplicationObject* m_applicationObject;
    std::map<document::Document*, DocumentObject*> m_documents;
    int m_nextDocumentNumber = 1;
    bool m_registered = false;
    UrlHandler m_urlHandler;
    FileManagerFolderSource m_fileManagerFolder;
};

}  // namespace trovara::app
