// A plug-in importer that misbehaves on chosen files, for the tests of the
// helper process and its keeper. What it does depends on the file's name:
//   crash…  dies of a segmentation fault
//   hang…   never returns
//   stall…  creates PATH.reading (so a test knows it has begun), then never
//           returns
//   hog…    allocates and touches memory until something stops it
//   flood…  appends text far past any limit
//   refuse… reports that it cannot read the file
//   print…  prints on its standard output, then imports normally
// and otherwise imports the file's first line as its title and the whole
// file as text. It serves plain text files (public.plain-text).
#include "index/import/importer_plugin.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

bool named(const char* path, const char* prefix)
{
    const char* slash = std::strrchr(path, '/');
    const char* name = slash ? slash + 1 : path;
    return std::strncmp(name, prefix, std::strlen(prefix)) == 0;
}

int importFile(const char* path, const char*, const TrovaraImportSink* sink, char* error, size_t errorSize)
{
    if (named(path, "crash")) {
        std::raise(SIGSEGV);
    }
    if (named(path, "stall")) {
        std::ofstream(std::string(path) + ".reading") << "";
    }
    if (named(path, "hang") || named(path, "stall")) {
        while (true) {
            ::pause();
        }
    }
    if (named(path, "hog")) {
        std::vector<char*> blocks;
        while (true) {
            char* block = new char[16 << 20];
            std::memset(block, 1, 16 << 20);
            blocks.push_back(block);
        }
    }
    if (named(path, "refuse")) {
        std::snprintf(error, errorSize, "this file is not to my taste");
        return 1;
    }
    if (named(path, "print")) {
        std::printf("stray output that must not reach the protocol\n");
        std::fflush(stdout);
    }
    if (named(path, "flood")) {
        const std::string chunk(1 << 16, 'x');
        for (int i = 0; i < 100000; ++i) {
            if (!sink->append_text_content(sink->context, chunk.data(), chunk.size())) {
                break;
            }
        }
        return 0;
    }
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    const std::string text = content.str();
    const std::string title = text.substr(0, text.find('\n'));
    sink->set_text(sink->context, "kMDItemTitle", title.data(), title.size());
    sink->add_text(sink->context, "kMDItemAuthors", "Fake", 4);
    sink->set_number(sink->context, "kMDItemNumberOfPages", 7);
    sink->append_text_content(sink->context, text.data(), text.size());
    return 0;
}

const char* const kTypes[] = {"public.plain-text", nullptr};

const TrovaraImporter kImporter = {TROVARA_IMPORTER_API_VERSION, "fake", "0.1", kTypes, importFile};

}  // namespace

extern "C" __attribute__((visibility("default"))) const TrovaraImporter* trovara_importer_entry(uint32_t version)
{
    return version == TROVARA_IMPORTER_API_VERSION ? &kImporter : nullptr;
}
