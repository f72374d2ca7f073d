// editors_bench: the criteria editor of a large search, headless and as
// widgets (offscreen).
//
//   editors_bench [--lines=N] [--benchmark_filter=… and the other Google
//                 Benchmark flags]
//
// The search's criteria have N lines (default 200): the top group and
// groups of nine rows (ANY groups), the rows cycling through name contains,
// size greater than, modified within the last days, kind is, and contents
// contain words. Then:
//   build/headless      the four editors' lines made from the document
//                       (what loading a window does before any widget)
//   build/widgets       the same plus the editors' widgets, shown and laid
//                       out: a window's editors ready to use
//   keystroke/headless  one keystroke in the value field of the last row:
//                       the value parsed, written into the row and the
//                       query text rebuilt
//   keystroke/widgets   the same typed into the line edit with QTest
// Targets: a build under 100 ms, every keystroke under 16 ms.
#include "document/document.h"
#include "editors/document_editors.h"
#include "editors/rule_value_field.h"
#include "model/criteria_json.h"
#include "model/defaults.h"
#include "presentation/column_formatters.h"
#include "widgets/rule_editor.h"
#include "widgets/rule_editors_panel.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

int g_lines = 200;

QByteArray criteriaJson(int lines)
{
    const char* rows[] = {
        R"({"attribute":"kMDItemDisplayName","operator":"contains","string":"report"})",
        R"({"attribute":"kMDItemFSSize","operator":"greaterThan","number":5,"unit":"MB"})",
        R"({"attribute":"kMDItemContentModificationDate","operator":"withinLast","number":3,"unit":"day"})",
        R"({"attribute":"kMDItemContentTypeTree","operator":"is","string":"public.image"})",
        R"({"attribute":"kMDItemTextContent","operator":"containsWords","string":"big cat"})",
    };
    QByteArray json = R"({"operator":"AND","children":[)";
    int made = 1;
    int row = 0;
    bool firstGroup = true;
    while (made < lines) {
        json += firstGroup ? "" : ",";
        firstGroup = false;
        json += R"({"operator":"OR","children":[)";
        ++made;
        for (int i = 0; i < 9 && made < lines; ++i, ++made, ++row) {
            json += i == 0 ? "" : ",";
            json += rows[row % 5];
        }
        json += "]}";
    }
    return json + "]}";
}

struct Search {
    Search()
    {
        document = std::make_unique<trovara::document::Document>(source);
        if (!document->initWithType().ok()) {
            std::abort();
        }
        document->updatePredicate([&] {
            if (!trovara::model::readCriteriaJson(criteriaJson(g_lines), document->managedObjectContext())) {
                std::abort();
            }
        });
        document->windowControllerDidLoadNib();
        QCoreApplication::sendPostedEvents();
    }

    trovara::index::NoIndexSource source;
    std::unique_ptr<trovara::document::Document> document;
};

void settle()
{
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
}

// The four editors as widgets in a shown window, laid out.
trovara::widgets::RuleEditorsPanel* showPanel(QWidget& window, trovara::document::Document& document)
{
    window.resize(1000, 700);
    auto* panel = new trovara::widgets::RuleEditorsPanel(document, &window);
    panel->resize(1000, 700);
    panel->loadEditors();
    window.show();
    settle();
    return panel;
}

void buildHeadless(benchmark::State& state)
{
    Search search;
    for (auto _ : state) {
        trovara::editors::DocumentEditors editors(*search.document);
        editors.loadEditors();
        benchmark::DoNotOptimize(editors.predicateEditor().numberOfRows());
    }
    state.counters["lines"] = g_lines;
}
BENCHMARK(buildHeadless)->Name("build/headless")->Unit(benchmark::kMillisecond);

void buildWidgets(benchmark::State& state)
{
    Search search;
    for (auto _ : state) {
        QWidget window;
        trovara::widgets::RuleEditorsPanel* panel = showPanel(window, *search.document);
        benchmark::DoNotOptimize(panel->criteriaEditor()->lineCount());
        state.counters["made"] = panel->criteriaEditor()->madeLineCount();
        state.PauseTiming();
        window.hide();
        state.ResumeTiming();
    }
    state.counters["lines"] = g_lines;
}
BENCHMARK(buildWidgets)->Name("build/widgets")->Unit(benchmark::kMillisecond);

// The last row with a text field.
int lastTextRow(trovara::editors::RuleEditorModel& editor)
{
    for (int row = editor.numberOfRows() - 1; row >= 0; --row) {
        trovara::editors::RuleValueField* field = editor.rowAtIndex(row)->shownField();
        if (field && field->kind() == trovara::editors::RuleValueField::Kind::StringField) {
            return row;
        }
    }
    return -1;
}

void keystrokeHeadless(benchmark::State& state)
{
    Search search;
    trovara::editors::DocumentEditors editors(*search.document);
    editors.loadEditors();
    trovara::editors::RuleValueField* field = editors.predicateEditor().rowAtIndex(lastTextRow(editors.predicateEditor()))->shownField();
    QString text = QStringLiteral("report");
    for (auto _ : state) {
        text = text.size() > 12 ? QStringLiteral("report") : text + QLatin1Char('s');
        field->setText(text);
    }
    benchmark::DoNotOptimize(search.document->currentExpression());
}
BENCHMARK(keystrokeHeadless)->Name("keystroke/headless")->Unit(benchmark::kMicrosecond);

void keystrokeWidgets(benchmark::State& state)
{
    Search search;
    QWidget window;
    trovara::widgets::RuleEditorsPanel* panel = showPanel(window, *search.document);
    trovara::widgets::RuleEditor* editor = panel->criteriaEditor();
    auto* edit = qobject_cast<QLineEdit*>(editor->line(lastTextRow(editor->model()))->control(2));
    if (!edit) {
        state.SkipWithError("no text field");
        return;
    }
    edit->setFocus();
    int typed = 0;
    for (auto _ : state) {
        if (++typed % 8 == 0) {
            QTest::keyClick(edit, Qt::Key_Backspace);
        } else {
            QTest::keyClick(edit, 'x');
        }
        settle();
    }
}
BENCHMARK(keystrokeWidgets)->Name("keystroke/widgets")->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--lines=", 8) == 0) {
            g_lines = std::atoi(argv[i] + 8);
        }
    }
    if (!std::getenv("QT_QPA_PLATFORM")) {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    }
    // A private home: the benchmark never touches the user's settings.
    QTemporaryDir home;
    setenv("HOME", home.path().toUtf8().constData(), 1);
    setenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/.config")).toUtf8().constData(), 1);
    QApplication app(argc, argv);
    trovara::model::Defaults::resetSharedForTesting(home.filePath(QStringLiteral("bench.conf")));
    trovara::presentation::installColumnPropertiesChooser();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
