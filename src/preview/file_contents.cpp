#include "preview/file_contents.h"

#include "index/import/protocol.h"

namespace trovara::preview {

index::ImportResult toImportResult(FileContents&& contents, std::uint64_t id)
{
    index::ImportResult result;
    result.id = id;
    result.attributes = std::move(contents.attributes);
    switch (contents.outcome) {
    case FileContents::Outcome::Text:
        result.text = std::move(contents.text);
        result.truncated = contents.truncated;
        break;
    case FileContents::Outcome::NoText:
        break;
    case FileContents::Outcome::Failed:
    case FileContents::Outcome::Cancelled:
        result.status = index::ImportStatus::Failed;
        result.error = contents.problem.empty() ? std::string("The text could not be read.") : contents.problem;
        break;
    }
    return result;
}

FileContents fromImportResult(index::ImportResult&& result)
{
    if (result.status != index::ImportStatus::Imported) {
        FileContents failed = FileContents::failed(std::move(result.error));
        failed.attributes = std::move(result.attributes);
        return failed;
    }
    FileContents contents;
    contents.attributes = std::move(result.attributes);
    if (result.text) {
        contents.outcome = FileContents::Outcome::Text;
        contents.text = std::move(*result.text);
        contents.truncated = result.truncated;
    }
    return contents;
}

}  // namespace trovara::preview
