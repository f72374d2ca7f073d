// A helper process that speaks the importer protocol badly on purpose, for
// the tests of the index's side. It offers one importer ("fake", plain
// text) and answers by the file's name:
//   garbage…  writes bytes that are no frame
//   huge…     announces a frame far over any limit
//   wrongid…  answers with another request's id
//   exit…     leaves without answering
//   slow…     answers after a second
// and otherwise answers properly, with the file's name as its title.
#include "index/import/protocol.h"

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <unistd.h>

using namespace trovara::index;

namespace {

bool named(const std::string& path, const char* prefix)
{
    const std::string name = path.substr(path.rfind('/') + 1);
    return name.rfind(prefix, 0) == 0;
}

}  // namespace

int main()
{
    HelloMessage hello;
    hello.importers.push_back({"fake", "1", "", {"public.plain-text"}});
    if (!writeFrame(STDOUT_FILENO, MessageType::Hello, encodeHello(hello))) {
        return 1;
    }
    while (true) {
        auto frame = readFrame(STDIN_FILENO, 1 << 20);
        if (!frame || !*frame || (*frame)->type != MessageType::Import) {
            return 0;
        }
        auto request = decodeImportRequest((*frame)->payload);
        if (!request) {
            return 1;
        }
        const std::string& path = request->path;
        if (named(path, "garbage")) {
            const char noise[] = "\x07\x00\x00\x00\x09 this is no frame at all";
            (void)::write(STDOUT_FILENO, noise, sizeof noise);
            continue;
        }
        if (named(path, "huge")) {
            const char header[] = "\xF0\xFF\xFF\x7F\x03";
            (void)::write(STDOUT_FILENO, header, 5);
            continue;
        }
        if (named(path, "exit")) {
            return 3;
        }
        if (named(path, "slow")) {
            std::this_thread::sleep_for(std::chrono::seconds(1));
        }
        ImportResult result;
        result.id = named(path, "wrongid") ? request->id + 1000 : request->id;
        result.attributes.push_back({"kMDItemTitle", path.substr(path.rfind('/') + 1)});
        result.text = "text of " + path;
        if (!writeFrame(STDOUT_FILENO, MessageType::Result, encodeImportResult(result))) {
            return 1;
        }
    }
}
