// A query controller over a real index of a temporary tree, with a
// dispatcher the test drives: the clock moves only when the test moves it,
// and the next turn of the event loop comes when the test asks for it.
#pragma once

#include "live_test_support.h"
#include "manual_dispatcher.h"
#include "model/defaults.h"
#include "query/metadata_query_controller.h"
#include "query_test_support.h"

#include <QCoreApplication>
#include <QDir>

#include <sys/stat.h>
#include <utime.h>

namespace trovara::test {

inline void setModified(const std::string& path, std::time_t when)
{
    struct utimbuf times {when, when};
    ::utime(path.c_str(), &times);
}

class ControllerTest : public LiveTreeTest {
protected:
    void SetUp() override
    {
        model::Defaults::resetSharedForTesting(QDir::homePath() + QStringLiteral("/controller-test.conf"));
    }

    void TearDown() override
    {
        controller.reset();
        QCoreApplication::sendPostedEvents();
        for (const char* key : {"showResultsImmediately", "includeInvisibleFiles", "showIconsInResults"}) {
            model::Defaults::shared().removeValue(QString::fromLatin1(key));
        }
        model::Defaults::resetSharedForTesting();
    }

    // Indexes the tree and makes a controller for the document.
    void makeController()
    {
        indexTree();
        source = std::make_unique<index::LiveIndexSource>(*live);
        controller = std::make_unique<query::MetadataQueryController>(*source, dispatcher);
        controller->windowDidLoadForDocument(&document);
        controller->setAlertPresenter([this](const query::Alert& alert, std::function<void(int)> didEnd) {
            alerts.push_back(alert);
            endAlert = std::move(didEnd);
        });
    }

    void start(const QString& expression, bool alternateKeyDown = false)
    {
        controller->setExpression(expression);
        controller->setSearchScopes({QString::fromStdString(root)});
        QCoreApplication::sendPostedEvents();
        controller->startQuery(alternateKeyDown);
    }

    // Runs everything that is due, moving the clock as needed, until the
    // query has delivered everything (or none runs any more).
    ::testing::AssertionResult settle()
    {
        for (int turns = 0; turns < 100000; ++turns) {
            QCoreApplication::sendPostedEvents();
            index::LiveQuery* query = controller->metadataQuery();
            if (!query) {
                return ::testing::AssertionSuccess();
            }
            dispatcher->runReady();
            QCoreApplication::sendPostedEvents();
            if (controller->metadataQuery() != query) {
                continue;  // stopped or restarted meanwhile
            }
            if (query->isIdle()) {
                return ::testing::AssertionSuccess();
            }
            if (!dispatcher->advanceToNext() && !dispatcher->waitForWork()) {
                return ::testing::AssertionFailure() << "the query never settled";
            }
        }
        return ::testing::AssertionFailure() << "the query kept changing";
    }

    QStringList resultNames() const
    {
        QStringList names;
        for (const query::ResultItem* item : controller->results()->arrangedObjects()) {
            names << item->displayName();
        }
        return names;
    }

    QStringList resultPaths() const
    {
        QStringList paths;
        for (const auto& item : controller->resultArray()) {
            paths << item->path();
        }
        paths.sort();
        return paths;
    }

    std::shared_ptr<ManualDispatcher> dispatcher = std::make_shared<ManualDispatcher>();
    std::unique_ptr<index::LiveIndexSource> source;
    ColumnChooserInstalled chooser;
    TestDocument document;
    std::unique_ptr<query::MetadataQueryController> controller;
    std::vector<query::Alert> alerts;
    std::function<void(int)> endAlert;
};

}  // namespace trovara::test
