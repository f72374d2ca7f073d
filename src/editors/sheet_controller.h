// A sheet on a document's window, without its widgets: what it holds, when
// it opens and how it ends. A presenter (the widgets library's) shows it,
// window-modal, and ends it with okSheet() / cancelSheet(); without a
// presenter the sheet is open until the caller ends it (tests).
//
// Opening: setUp() fills the sheet, shouldBeginSheet() may prepare it (or
// refuse), then the presenter shows it. Ending: the delegate's did-end
// function gets the return code, then cleanUp() releases what setUp made.
//
// Not thread-safe.
#pragma once

#include <QObject>
#include <QString>

#include <functional>

namespace trovara::document {
class Document;
}

namespace trovara::editors {

class SheetController : public QObject {
    Q_OBJECT

public:
    enum ReturnCode { Cancel = 0, OK = 1 };
    using DidEnd = std::function<void(int returnCode)>;
    using Presenter = std::function<void(SheetController& sheet)>;

    SheetController(document::Document& document, QString nibName, QObject* parent = nullptr);
    ~SheetController() override;

    document::Document& document() const { return m_document; }
    // The name of the interface the sheet is made from.
    const QString& nibName() const { return m_nibName; }

    void setPresenter(Presenter presenter) { m_presenter = std::move(presenter); }

    // False when the sheet is open already or shouldBeginSheet refused.
    bool beginSheetWithDelegate(DidEnd didEnd = {});
    bool isSheetOpen() const { return m_open; }
    void dismissSheetWithReturnCode(int returnCode);

    // The document's window closes: an open sheet ends as cancelled and
    // everything is released.
    void documentWindowWillClose();

signals:
    void sheetBegan();
    void sheetEnded(int returnCode);

protected:
    virtual void setUp() {}
    virtual bool shouldBeginSheet() { return true; }
    virtual void cleanUp() {}

private:
    document::Document& m_document;
    QString m_nibName;
    Presenter m_presenter;
    DidEnd m_didEnd;
    bool m_open = false;
};

}  // namespace trovara::editors
