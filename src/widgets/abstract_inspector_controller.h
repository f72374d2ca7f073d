// The base of Trovara's floating panels (the metadata inspector, the query
// inspector, the text preview): one tool window each, made on first use,
// that follows the active search document.
//
// - The menu item that toggles a panel reads menuTitle(): "Hide …" while
//   the panel is open and the active window, "Show …" otherwise (an open
//   panel behind a document window offers Show, which brings it forward).
// - The panel's document (content()) is the application's active document
//   from the moment the panel becomes active until it is closed; a closed
//   panel holds no document.
// - "<ClassName>Active" (a user default) remembers whether the panel was
//   open at the last quit; such a panel opens again on the next turn of the
//   event loop after it is made, when shouldAutoOpen() agrees.
// - The window's place is kept under "<ClassName>Frame"; a panel without a
//   saved place opens centred.
// - Escape hides the panel.
//
// Subclasses give the window's contents (makeContents()), the menu titles
// and what to do when the document changes (contentChanged()). The shell
// owns one instance of each panel for the life of the application and
// tells them the active document (setActiveDocument()). Main thread only.
#pragma once

#include "document/document.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <functional>

class QWidget;

namespace trovara::widgets {

class AbstractInspectorController : public QObject {
    Q_OBJECT

public:
    // `className` names the panel's user defaults ("InspectorController");
    // `windowTitle` is its window's title.
    AbstractInspectorController(const QString& className, const QString& windowTitle, QObject* parent = nullptr);
    ~AbstractInspectorController() override;

    const QString& className() const { return m_className; }
    // "<ClassName>Active".
    QString activeDefaultsKey() const;

    // The panel's window, made on first request.
    QWidget* window();
    bool isWindowLoaded() const { return m_window != nullptr; }
    // Visible and the active window.
    bool isWindowActive() const;
    bool isWindowVisible() const;

    // "Show …" or "Hide …".
    virtual QString menuTitleWhenActive(bool active) const;
    QString menuTitle() const { return menuTitleWhenActive(isWindowLoaded() && isWindowActive()); }

    // Brings the panel to the front and makes it active (unless it is already).
    void activateInspectorPanel();
    // Closes an active panel, activates any other.
    void toggleInspectorPanel();
    // Escape: hides the panel.
    void cancelOperation();

    // The application's active document (the shell keeps it current).
    void setActiveDocument(document::Document* document);
    document::Document* activeDocument() const { return m_activeDocument; }
    // The document the panel shows: the active one while bound, else none.
    document::Document* content() const { return m_bound ? m_activeDocument.data() : nullptr; }

    // Stores "<ClassName>Active": whether the panel is open now.
    void applicationWillTerminate();

    virtual bool shouldAutoOpen() const { return true; }

signals:
    // The panel's document changed (possibly to none).
    void contentChanged(trovara::document::Document* document);
    // The panel was shown, hidden, activated or deactivated.
    void windowStateChanged();

protected:
    // The window's contents (called once, when the window is made).
    virtual QWidget* makeContents() = 0;
    // The active document changed (whether or not the panel shows it).
    virtual void activeDocumentChanged() {}
    // The document shown changed; contents follow it.
    virtual void showContent(document::Document* document) = 0;

    bool eventFilter(QObject* watched, QEvent* event) override;

    // For panels that show the selected result: calls `selectionChanged`
    // whenever the document's selection or results change, and
    // `searchStringsChanged` whenever its search strings do, until the next
    // call (a null document: never).
    void followSelectionOf(document::Document* document, const std::function<void()>& selectionChanged,
                           const std::function<void()>& searchStringsChanged);
    // The paths of the document's selected results.
    static QStringList selectedPaths(const document::Document* document);

private:
    void setBound(bool bound);
    void publishContent();
    void saveFrame();

    QString m_className;
    QString m_windowTitle;
    QWidget* m_window = nullptr;
    QPointer<document::Document> m_activeDocument;
    QPointer<document::Document> m_shown;
    bool m_bound = false;
    QList<QMetaObject::Connection> m_selectionConnections;
};

}  // namespace trovara::widgets
