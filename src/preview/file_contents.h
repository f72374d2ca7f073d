// What a preview gets of a file: its text, or why there is none.
//
// Thread safety: plain values.
#pragma once

#include "index/import/imported_attributes.h"

#include <cstdint>
#include <string>

namespace trovara::preview {

struct FileContents {
    enum class Outcome {
        Text,       // text, perhaps cut at the limit
        NoText,     // a readable file with no text in it (an image, a binary)
        Failed,     // the file or its importer failed; `problem` says how
        Cancelled,  // nobody waits for the answer any more
    };
    Outcome outcome = Outcome::NoText;
    std::string text;  // UTF-8
    bool truncated = false;
    std::string problem;  // for Failed: a short sentence a person can act on
    index::ImportedAttributes attributes;  // what the importer found besides

    bool hasText() const { return outcome == Outcome::Text; }

    static FileContents failed(std::string problem)
    {
        FileContents contents;
        contents.outcome = Outcome::Failed;
        contents.problem = std::move(problem);
        return contents;
    }
    static FileContents cancelled()
    {
        FileContents contents;
        contents.outcome = Outcome::Cancelled;
        return contents;
    }
};

}  // namespace trovara::preview

namespace trovara::index {
struct ImportResult;
}

namespace trovara::preview {

// How the text preview's helper sends contents: as the answer to an Import
// of the importer protocol (text present: Text; imported without text:
// NoText; failed: Failed with the problem as the error).
index::ImportResult toImportResult(FileContents&& contents, std::uint64_t id);
FileContents fromImportResult(index::ImportResult&& result);

}  // namespace trovara::preview
