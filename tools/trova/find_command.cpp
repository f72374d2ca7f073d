// trova find [-onlyin DIR]… [-name TEXT] [-count] [-0] [-interpret] [-live] QUERY
#include "commands.h"
#include "daemon_link.h"
#include "live_source.h"
#include "services.h"

#include "index/crawl_search.h"
#include "index/fs/mounts.h"
#include "index/query/find_query.h"
#include "index/query/parser.h"
#include "index/search.h"
#include "index/search_scope.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>

namespace trovara::cli {

namespace {

std::atomic<bool> g_stop{false};

extern "C" void onStop(int)
{
    g_stop.store(true);
}

struct FindOptions {
    std::vector<std::string> scopes;
    std::optional<std::string> name;
    bool count = false;
    bool nul = false;
    bool interpret = false;
    bool live = false;
    std::string query;
};

bool isInside(const std::string& inner, const std::string& outer)
{
    return inner == outer || outer == "/"
           || (inner.size() > outer.size() && inner.compare(0, outer.size(), outer) == 0 && inner[outer.size()] == '/');
}

class Output {
public:
    Output(bool count, bool nul)
        : m_count(count)
        , m_nul(nul)
    {
    }
    bool counting() const { return m_count; }
    void add(const std::string& path)
    {
        ++m_total;
        if (!m_count) {
            std::fwrite(path.data(), 1, path.size(), stdout);
            std::fputc(m_nul ? '\0' : '\n', stdout);
        }
    }
    void addUnnamed() { ++m_total; }
    int finish()
    {
        if (m_count) {
            std::printf("%llu\n", static_cast<unsigned long long>(m_total));
        }
        return std::fflush(stdout) == 0 ? 0 : 1;
    }

private:
    bool m_count;
    bool m_nul;
    std::uint64_t m_total = 0;
};

}  // namespace

int findCommand(const GlobalOptions& global, const QStringList& arguments)
{
    FindOptions options;
    QStringList words;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments[i];
        if (argument == QLatin1String("-onlyin") || argument == QLatin1String("-name")) {
            if (i + 1 >= arguments.size()) {
                printError(QStringLiteral("%1 needs a value").arg(argument));
                return 2;
            }
            const std::string value = arguments[++i].toStdString();
            if (argument == QLatin1String("-onlyin")) {
                options.scopes.push_back(value);
            } else {
                options.name = value;
            }
        } else if (argument == QLatin1String("-count")) {
            options.count = true;
        } else if (argument == QLatin1String("-0")) {
            options.nul = true;
        } else if (argument == QLatin1String("-interpret")) {
            options.interpret = true;
        } else if (argument == QLatin1String("-live")) {
            options.live = true;
        } else if (argument == QLatin1String("--")) {
            words += arguments.mid(i + 1);
            break;
        } else if (argument.startsWith(QLatin1Char('-')) && argument.size() > 1 && words.isEmpty()
                   && !argument.at(1).isDigit()) {
            printError(QStringLiteral("unknown option %1").arg(argument));
            printError(QStringLiteral(
                "usage: trova find [-onlyin DIR]… [-name TEXT] [-count] [-0] [-interpret] [-live] QUERY"));
            return 2;
        } else {
            words << argument;
        }
    }
    options.query = words.join(QLatin1Char(' ')).toStdString();
    index::Expected<index::query::FindQuery> text =
        index::query::findQuery(options.query, options.name, options.interpret);
    if (!text) {
        printError(QStringLiteral("invalid query: %1").arg(QString::fromStdString(text.error().message)));
        return 1;
    }
    index::Expected<index::query::Query> parsed = index::query::parseQuery(text->text);
    if (!parsed) {
        printError(QStringLiteral("invalid query: %1").arg(QString::fromStdString(parsed.error().message)));
        return 1;
    }

    if (options.live) {
        if (options.count) {
            printError(QStringLiteral("-live and -count do not go together"));
            return 2;
        }
        return findLive(global, text->text, options.scopes, options.nul);
    }

    std::vector<std::string> folders;
    for (const std::string& scope : options.scopes) {
        index::Expected<std::vector<std::string>> resolved = index::scopeFolders(scope);
        if (!resolved) {
            printError(QString::fromStdString(resolved.error().message));
            return 1;
        }
        folders.insert(folders.end(), resolved->begin(), resolved->end());
    }
    if (!options.scopes.empty() && folders.empty()) {
        return Output(options.count, options.nul).finish();  // a named scope with no folders
    }

    // A running daemon writes its snapshot first, so that it is current.
    bool daemonFailed = false;
    if (std::unique_ptr<daemon::Connection> daemon = connectToDaemon(global, &daemonFailed)) {
        daemon::Request checkpoint;
        checkpoint.type = daemon::MessageType::Checkpoint;
        index::Expected<daemon::Reply> reply = daemon->call(checkpoint);
        if (reply && reply->failure) {
            printError(QString::fromStdString(reply->failure->message));
        }
    }

    const index::IndexServices services = indexServices();
    const index::query::QueryStart start = index::query::QueryStart::now();
    index::Expected<std::shared_ptr<const index::Catalogue>> catalogue =
        index::Index::catalogue(global.indexDirectory, services);
    if (!catalogue && (folders.empty() || catalogue.error().kind == index::Failure::Kind::Corrupt
                       || catalogue.error().kind == index::Failure::Kind::Version)) {
        printError(QString::fromStdString(catalogue.error().message));
        return 1;
    }

    Output output(options.count, options.nul);
    std::vector<std::string> outside;
    if (catalogue) {
        const index::Catalogue& c = *catalogue.value();
        index::ResolvedScope resolved = index::resolveScope(c, folders);
        outside = resolved.outside;
        std::vector<index::ItemRange> ranges = resolved.ranges;
        for (const std::string& folder : resolved.outside) {
            for (index::ItemIndex root : c.roots()) {
                if (isInside(c.path(root), folder)) {
                    ranges.push_back({root, c.core(root).subtreeEnd});
                }
            }
        }
        ranges = index::mergeRanges(std::move(ranges));
        const index::CatalogueQuery search(catalogue.value(), *parsed, start);
        if (output.counting()) {
            for (std::size_t n = search.count(ranges); n > 0; --n) {
                output.addUnnamed();
            }
        } else {
            search.run(ranges, [&](index::ItemIndex i) {
                output.add(c.path(i));
                return true;
            });
        }
    } else {
        outside = folders;
    }

    if (!outside.empty()) {
        struct sigaction action {};
        action.sa_handler = onStop;
        sigemptyset(&action.sa_mask);
        struct sigaction previous {};
        sigaction(SIGINT, &action, &previous);
        std::vector<std::string> roots;
        if (catalogue) {
            for (index::ItemIndex root : catalogue.value()->roots()) {
                roots.push_back(catalogue.value()->path(root));
            }
        }
        for (const std::string& folder : outside) {
            index::CrawlSearchOptions crawlOptions;
            crawlOptions.cancel = &g_stop;
            crawlOptions.excludedFolders = roots;
            index::Expected<index::CrawlStatistics> crawled = index::searchByCrawling(
                folder, *parsed, start, services, [&](const std::string& path) { output.add(path); }, crawlOptions);
            if (!crawled) {
                printError(QString::fromStdString(crawled.error().message));
                sigaction(SIGINT, &previous, nullptr);
                output.finish();
                return 1;
            }
            if (g_stop.load()) {
                break;
            }
        }
        sigaction(SIGINT, &previous, nullptr);
    }
    return output.finish();
}

}  // namespace trovara::cli
