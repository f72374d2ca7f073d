#include "importers/registry.h"

#include "index/import/importer_plugin.h"

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <dlfcn.h>
#include <exception>
#include <new>
#include <set>

namespace trovara::importers {

namespace {

// A plug-in library seen as an importer.
class PluginImporter final : public Importer {
public:
    PluginImporter(const TrovaraImporter& entry, std::string path)
        : m_entry(entry)
    {
        m_info.name = entry.name;
        m_info.version = entry.version ? entry.version : "";
        m_info.path = std::move(path);
        for (const char* const* type = entry.content_types; type && *type; ++type) {
            m_info.contentTypes.emplace_back(*type);
        }
    }

    const index::ImporterInfo& info() const override { return m_info; }

    Expected<void> importFile(const ImportContext& context, ImportSink& sink) const override
    {
        TrovaraImportSink c{};
        c.context = &sink;
        c.set_text = [](void* s, const char* key, const char* text, size_t length) {
            if (key && text) {
                static_cast<ImportSink*>(s)->setText(key, std::string_view(text, length));
            }
        };
        c.set_number = [](void* s, const char* key, double value) {
            if (key) {
                static_cast<ImportSink*>(s)->setNumber(key, value);
            }
        };
        c.set_date = [](void* s, const char* key, double seconds) {
            if (key) {
                static_cast<ImportSink*>(s)->setDate(key, seconds);
            }
        };
        c.set_boolean = [](void* s, const char* key, int value) {
            if (key) {
                static_cast<ImportSink*>(s)->setBoolean(key, value != 0);
            }
        };
        c.add_text = [](void* s, const char* key, const char* text, size_t length) {
            if (key && text) {
                static_cast<ImportSink*>(s)->addToList(key, std::string_view(text, length));
            }
        };
        c.append_text_content = [](void* s, const char* text, size_t length) -> int {
            return text && static_cast<ImportSink*>(s)->appendText(std::string_view(text, length)) ? 1 : 0;
        };
        char error[1024] = {};
        if (m_entry.import_file(context.path.c_str(), context.mimeType.c_str(), &c, error, sizeof error) != 0) {
            error[sizeof error - 1] = '\0';
            return importFailure(error[0] ? error : "the plug-in could not read the file");
        }
        return {};
    }

private:
    const TrovaraImporter& m_entry;
    index::ImporterInfo m_info;
};

bool endsWith(std::string_view text, std::string_view suffix)
{
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

}  // namespace

std::vector<std::string> pluginFolders()
{
    std::vector<std::string> folders;
    if (const char* list = std::getenv("TROVARA_IMPORTER_PATH")) {
        std::string_view rest(list);
        while (!rest.empty()) {
            const std::size_t colon = rest.find(':');
            const std::string_view folder = rest.substr(0, colon);
            if (!folder.empty()) {
                folders.emplace_back(folder);
            }
            rest = colon == std::string_view::npos ? std::string_view() : rest.substr(colon + 1);
        }
        return folders;
    }
    if (const char* home = std::getenv("HOME"); home && *home) {
        folders.push_back(std::string(home) + "/.local/lib/trovara/importers");
    }
    folders.emplace_back("/usr/local/lib/trovara/importers");
    folders.emplace_back("/usr/lib/trovara/importers");
    return folders;
}

Registry Registry::load(const std::vector<std::string>& folders)
{
    Registry registry;
    std::set<std::string> names;
    for (const std::string& folder : folders) {
        std::vector<std::string> files;
        if (DIR* dir = ::opendir(folder.c_str())) {
            while (const dirent* entry = ::readdir(dir)) {
                if (endsWith(entry->d_name, ".so")) {
                    files.emplace_back(entry->d_name);
                }
            }
            ::closedir(dir);
        }
        std::sort(files.begin(), files.end());
        for (const std::string& file : files) {
            const std::string path = folder + "/" + file;
            void* library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (!library) {
                const char* why = ::dlerror();
                registry.m_problems.push_back(path + ": " + (why ? why : "cannot be loaded"));
                continue;
            }
            auto entry = reinterpret_cast<TrovaraImporterEntry>(::dlsym(library, TROVARA_IMPORTER_ENTRY_SYMBOL));
            const TrovaraImporter* importer = entry ? entry(TROVARA_IMPORTER_API_VERSION) : nullptr;
            std::string problem;
            if (!entry) {
                problem = "has no " TROVARA_IMPORTER_ENTRY_SYMBOL " function";
            } else if (!importer || importer->api_version != TROVARA_IMPORTER_API_VERSION) {
                problem = "does not speak importer interface version " + std::to_string(TROVARA_IMPORTER_API_VERSION);
            } else if (!importer->name || !*importer->name || !importer->import_file || !importer->content_types) {
                problem = "describes itself incompletely";
            } else if (names.count(importer->name)) {
                problem = std::string("repeats the name \"") + importer->name + "\" of an importer found earlier";
            }
            if (!problem.empty()) {
                registry.m_problems.push_back(path + ": " + problem);
                ::dlclose(library);
                continue;
            }
            names.insert(importer->name);
            registry.m_libraries.push_back(library);
            registry.m_importers.push_back(std::make_unique<PluginImporter>(*importer, path));
        }
    }
    for (std::unique_ptr<Importer>& builtin : builtinImporters()) {
        if (names.insert(builtin->info().name).second) {
            registry.m_importers.push_back(std::move(builtin));
        }
    }
    return registry;
}

Registry::Registry(Registry&&) noexcept = default;
Registry& Registry::operator=(Registry&&) noexcept = default;

Registry::~Registry()
{
    m_importers.clear();
    for (void* library : m_libraries) {
        ::dlclose(library);
    }
}

std::vector<index::ImporterInfo> Registry::infos() const
{
    std::vector<index::ImporterInfo> list;
    for (const auto& importer : m_importers) {
        list.push_back(importer->info());
    }
    return list;
}

index::ImportResult Registry::runImport(const index::ImportRequest& request) const
{
    auto failed = [&](std::string error, index::ImportStatus status = index::ImportStatus::Failed) {
        index::ImportResult result;
        result.status = status;
        result.error = std::move(error);
        result.id = request.id;
        return result;
    };
    const auto it = std::find_if(m_importers.begin(), m_importers.end(),
                                 [&](const auto& importer) { return importer->info().name == request.importer; });
    if (it == m_importers.end()) {
        return failed("no importer named \"" + request.importer + "\"");
    }
    ImportSink sink(request.textLimit);
    try {
        Expected<void> imported = (*it)->importFile({request.path, request.mimeType}, sink);
        if (!imported) {
            return failed(imported.error().message);
        }
    } catch (const std::bad_alloc&) {
        return failed("the importer ran out of memory", index::ImportStatus::Exhausted);
    } catch (const std::exception& error) {
        return failed(std::string("the importer failed: ") + error.what());
    } catch (...) {
        return failed("the importer failed");
    }
    index::ImportResult result = sink.take();
    result.id = request.id;
    return result;
}

}  // namespace trovara::importers
