// The D-Bus faces of the application and of one document: thin adaptors
// that translate calls into the delegate's and the document's own
// operations and their failures into D-Bus errors. The interfaces are
// written down in docs/format/dbus.md.
#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusContext>
#include <QDBusObjectPath>
#include <QObject>
#include <QPointer>
#include <QStringList>

namespace trovara::document {
class Document;
}

namespace trovara::app {

class ScriptingService;

// The objects registered on the bus carry the context of the call being
// answered (Qt sets it on the registered object, not on its adaptor), so
// the adaptors answer errors through them.

// The object at /com/velmont/Trovara.
class ApplicationObject final : public QObject, public QDBusContext {
    Q_OBJECT
public:
    explicit ApplicationObject(ScriptingService& service);
    ScriptingService& service() const { return m_service; }

signals:
    // The helper application reloads its hot keys and menu item.
    void trovaraPreferencesChanged();

private:
    ScriptingService& m_service;
};

class ApplicationAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.velmont.Trovara.Application")

public:
    explicit ApplicationAdaptor(ApplicationObject* application);

public slots:
    QList<QDBusObjectPath> Documents();
    QDBusObjectPath ActiveDocument();
    QDBusObjectPath OpenDocument(const QString& path);
    QDBusObjectPath NewDocument();
    // Used by a second instance to hand over its command line: absolute
    // paths and URLs.
    void OpenLocations(const QStringList& locations);

    // Quick searches and bringing Trovara to the front (the routes of
    // links, services and hot keys, for scripts and the helper).
    QDBusObjectPath BlitzSearch(const QString& text, bool anyText, bool filename, bool content, bool comments,
                                const QString& templatePath);
    QDBusObjectPath LocationSearch(const QStringList& paths);
    QDBusObjectPath OpenTemplate(const QString& path, bool fresh);
    QDBusObjectPath SearchFileManagerFolder();
    void OpenUrl(const QString& url);
    void Activate();
    void ActivateNewDocument();
    void ShowPreferences();

signals:
    void trovaraPreferencesChanged();

private:
    QDBusObjectPath replyWithError(const QString& name, const QString& message);
    // False, with an AccessDenied reply, for a caller running as another
    // user (a bus shared between users).
    bool acceptCaller();
    // The document made, or an error reply saying that it could not be.
    QDBusObjectPath documentOrError(document::Document* document);
    ApplicationObject* m_application;
    ScriptingService& m_service;
};

// The object at /com/velmont/Trovara/Document/N.
class DocumentObject final : public QObject, public QDBusContext {
    Q_OBJECT
public:
    DocumentObject(ScriptingService& service, document::Document* document, QString path);
    ScriptingService& service() const { return m_service; }
    document::Document* document() const { return m_document; }
    const QString& path() const { return m_path; }

private:
    ScriptingService& m_service;
    QPointer<document::Document> m_document;
    QString m_path;
};

class DocumentAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.velmont.Trovara.Document")
    Q_PROPERTY(QString DisplayName READ displayName)
    Q_PROPERTY(QString FilePath READ filePath)
    Q_PROPERTY(QString QueryString READ queryString)
    Q_PROPERTY(QString StatusLine READ statusLine)
    Q_PROPERTY(QString State READ state)
    Q_PROPERTY(int ResultCount READ resultCount)

public:
    explicit DocumentAdaptor(DocumentObject* object);

    QString displayName() const;
    QString filePath() const;
    QString queryString() const;
    QString statusLine() const;
    QString state() const;
    int resultCount() const;

public slots:
    QStringList Results();
    void Start();
    void Stop();
    void SaveAs(const QString& path);
    void Close();

private:
    // The document, or nothing (and an error reply) once it has gone.
    document::Document* liveDocument();
    // Answers the call with a D-Bus error (when there is a call).
    void fail(const QString& name, const QString& message);
    DocumentObject* m_object;
};

}  // namespace trovara::app
