// trovara-text-preview: the text preview's helper process
// ("TextPreviewHelper"). It reads files' text with Trovara's importers, so
// that an importer that crashes or hangs takes this process down and not
// the application.
//
//   trovara-text-preview CONNECTION-NAME PARENT-PID
//
// listens on a local socket under CONNECTION-NAME and answers the
// application's TextPreviewUtility (src/preview/text_preview_server.h)
// until PARENT-PID has ended. Whatever importers print goes to standard
// error.
#include "importers/process_limits.h"
#include "importers/registry.h"
#include "importers/registry_importer.h"
#include "index/import/helper_importer.h"
#include "preview/text_preview_server.h"

#include <QCoreApplication>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <sys/prctl.h>
#include <unistd.h>

int main(int argc, char* argv[])
{
    if (argc != 3) {
        std::fputs("usage: trovara-text-preview CONNECTION-NAME PARENT-PID\n"
                   "Reads files' text for Trovara's text preview; started by Trovara.\n",
                   stderr);
        return 2;
    }
    bool numeric = false;
    const qint64 parent = QByteArray(argv[2]).toLongLong(&numeric);
    if (!numeric || parent <= 0) {
        std::fprintf(stderr, "trovara-text-preview: %s is no process id\n", argv[2]);
        return 2;
    }
    // Gone with the thread that started us; and if the application ended
    // already, gone now.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::kill(static_cast<pid_t>(parent), 0) != 0 && errno == ESRCH) {
        return 0;
    }
    ::dup2(STDERR_FILENO, STDOUT_FILENO);

    const trovara::index::HelperOptions limits = trovara::index::HelperImporter::defaultOptions();
    trovara::importers::capAddressSpace(limits.memoryLimit);
    // Qt's image reader finds its format plug-ins through the application.
    QCoreApplication app(argc, argv);
    auto registry = std::make_shared<const trovara::importers::Registry>(
        trovara::importers::Registry::load(trovara::importers::pluginFolders()));
    trovara::preview::TextPreviewManager manager(
        std::make_shared<trovara::importers::RegistryImporter>(registry, limits.textLimit), limits.textLimit);
    // Ready before it greets, so that the first file is read at full speed.
    manager.warmUp(QCoreApplication::applicationFilePath().toStdString());
    trovara::index::HelloMessage hello;
    hello.importers = registry->infos();
    hello.problems = registry->problems();
    trovara::preview::TextPreviewServer server(manager, std::move(hello));
    QString error;
    if (!server.listen(QString::fromLocal8Bit(argv[1]), &error)) {
        std::fprintf(stderr, "trovara-text-preview: cannot listen on %s: %s\n", argv[1], qPrintable(error));
        return 1;
    }
    server.watchParent(parent);
    return app.exec();
}
