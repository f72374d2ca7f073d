// Type identifiers: what kMDItemContentType, kMDItemContentTypeTree and
// kMDItemKind hold for a file, derived from its shared-mime-info MIME type.
//
// A MIME type maps to one identifier ("image/png" → "public.png"): through
// Trovara's table, looking up the name as given and as shared-mime-info's
// canonical name (so aliases such as "image/heic" for "image/heif" find
// their row); failing that, through the MIME type's parents in
// shared-mime-info, nearest first; failing that, by the media type
// (text/* public.text, image/* public.image, audio/* public.audio,
// video/* public.movie, anything else public.data).
//
// Identifiers form a graph of conformance (public.png → public.image →
// public.data, public.content → public.item); an item's content type tree is
// its identifier followed by all its ancestors.
//
// Thread safety: every function may be called from any thread. Descriptions
// are computed once per MIME name and kept for the life of the process;
// references returned stay valid for as long.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace trovara::index {

// What the index stores about a MIME type.
struct TypeDescription {
    std::string mimeType;               // as asked for
    std::string identifier;             // kMDItemContentType
    std::string kind;                   // kMDItemKind: the MIME type's English description
    std::vector<std::string> tree;      // kMDItemContentTypeTree: identifier first, then its ancestors

    bool operator==(const TypeDescription&) const = default;
};

// The full description of a MIME type; cached.
const TypeDescription& describeMimeType(const std::string& mimeType);

// The identifier a MIME type maps to; never empty (public.data at worst).
std::string typeIdentifierForMimeType(std::string_view mimeType);

// The identifier and all its ancestors without duplicates: the identifier
// first, then the ancestors breadth-first, each parent in declaration order.
// An unknown identifier is its own tree.
std::vector<std::string> contentTypeTree(std::string_view identifier);

// The direct parents of an identifier (empty for roots and unknown ones).
std::span<const std::string_view> typeParents(std::string_view identifier);

// Whether `identifier` is `ancestor` or descends from it.
bool typeConformsTo(std::string_view identifier, std::string_view ancestor);

// Every identifier of the graph, sorted.
std::span<const std::string_view> knownTypeIdentifiers();

// The MIME type's description in English ("PNG image"), as shared-mime-info
// gives it untranslated, whatever the process's locale; the MIME name itself
// when shared-mime-info does not know the type.
std::string mimeTypeDescription(std::string_view mimeType);

}  // namespace trovara::index
