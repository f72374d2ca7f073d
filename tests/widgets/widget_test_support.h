// Shared pieces of the widget tests: a temporary tree of text files and
// pictures with an index over it, the application shell on that index, and
// helpers to set a search's criteria and wait for its results.
#pragma once

#include "common/error_presenter.h"
#include "document/document.h"
#include "live_test_support.h"
#include "model/defaults.h"
#include "widgets/application.h"
#include "widgets/document_window.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QImage>

#include <functional>
#include <memory>
#include <vector>

namespace trovara::test {

// Runs the event loop until the condition holds or five seconds pass.
::testing::AssertionResult waitFor(const std::function<bool()>& condition, const char* what = "the condition");

// Writes a small picture (PNG, or another format by suffix).
void writePicture(const std::string& path, QColor color, QSize size = QSize(64, 48));

// Sets a criterion of the search's default rows (by attribute key), and its
// places to the given folders.
void setCriterion(document::Document& document, const QString& key, const QString& text);
void setPlaces(document::Document& document, const QStringList& folders);

// The search's query has gathered everything (or none runs).
bool isSettled(const document::Document& document);

// Collects what QAbstractItemModelTester reports (in its Warning mode) for
// the life of the object.
class ModelTesterWarnings {
public:
    ModelTesterWarnings();
    ~ModelTesterWarnings();
    QStringList messages;

private:
    QtMessageHandler m_previous;
};

// The tree: reports (text), notes, and pictures in a folder of their own.
class WidgetTest : public LiveTreeTest {
protected:
    WidgetTest();
    ~WidgetTest() override;

    void SetUp() override;
    void TearDown() override;

    // The shell on the index of the tree (made once per test).
    widgets::Application& application();
    // A new search window searching the tree, its window loaded.
    widgets::DocumentWindow* newSearchWindow();
    // Starts a search for names containing `text` and waits for its results.
    void searchNames(widgets::DocumentWindow* window, const QString& text);
    QString treePath(const std::string& relative) const { return QString::fromStdString(at(relative)); }

    std::unique_ptr<widgets::Application> m_application;
    std::vector<Error> presented;
    std::vector<QUrl> opened;
};

}  // namespace trovara::test
