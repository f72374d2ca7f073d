// trovara-importer: the helper process that runs importers for the index.
//
//   trovara-importer --serve [--memory-limit BYTES]
//
// speaks the importer protocol (docs/format/importer.md) on its standard
// input and output until its input ends or it is told to quit. Whatever
// importers print goes to standard error, so that the protocol stays clean.
#include "importers/process_limits.h"
#include "importers/registry.h"
#include "index/import/helper_importer.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstring>
#include <string>
#include <unistd.h>

namespace {

// Requests are small: a path and a few names.
constexpr std::size_t kMaxRequest = 1 << 20;

int serve(const trovara::importers::Registry& registry)
{
    // The protocol gets its own descriptor; standard output becomes standard
    // error, for anything an importer prints.
    const int protocolOut = ::dup(STDOUT_FILENO);
    ::dup2(STDERR_FILENO, STDOUT_FILENO);

    trovara::index::HelloMessage hello;
    hello.importers = registry.infos();
    hello.problems = registry.problems();
    if (!trovara::index::writeFrame(protocolOut, trovara::index::MessageType::Hello, trovara::index::encodeHello(hello))) {
        return 1;
    }
    while (true) {
        auto frame = trovara::index::readFrame(STDIN_FILENO, kMaxRequest);
        if (!frame) {
            std::fprintf(stderr, "trovara-importer: %s\n", frame.error().message.c_str());
            return 1;
        }
        if (!*frame || (*frame)->type == trovara::index::MessageType::Quit) {
            return 0;
        }
        if ((*frame)->type != trovara::index::MessageType::Import) {
            std::fprintf(stderr, "trovara-importer: unexpected message\n");
            return 1;
        }
        auto request = trovara::index::decodeImportRequest((*frame)->payload);
        if (!request) {
            std::fprintf(stderr, "trovara-importer: %s\n", request.error().message.c_str());
            return 1;
        }
        const trovara::index::ImportResult result = registry.runImport(*request);
        if (!trovara::index::writeFrame(protocolOut, trovara::index::MessageType::Result,
                                        trovara::index::encodeImportResult(result))) {
            return 1;
        }
    }
}

}  // namespace

int main(int argc, char* argv[])
{
    bool serving = false;
    std::uint64_t memoryLimit = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--serve") {
            serving = true;
        } else if (argument == "--memory-limit" && i + 1 < argc) {
            memoryLimit = trovara::index::parseByteCount(argv[++i]).value_or(0);
        } else {
            std::fprintf(stderr, "trovara-importer: unknown argument %s\n", argument.c_str());
            return 2;
        }
    }
    if (!serving) {
        std::fputs("usage: trovara-importer --serve [--memory-limit BYTES]\n"
                   "Runs Trovara's importers for the index; see `trova import -L`.\n",
                   stderr);
        return 2;
    }
    if (memoryLimit > 0) {
        trovara::importers::capAddressSpace(memoryLimit);
    }
    // Qt's image reader finds its format plug-ins through the application.
    QCoreApplication app(argc, argv);
    const trovara::importers::Registry registry =
        trovara::importers::Registry::load(trovara::importers::pluginFolders());
    return serve(registry);
}
