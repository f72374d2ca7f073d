#include "index/schema.h"

namespace trovara::index {

namespace {

using enum ValueType;
using enum AttributeSource;

struct Row {
    const char* key;
    ValueType type;
    bool list;
    const char* name;
    const char* description;
    AttributeSource source;
    bool anyText;
};

// The built-in table. Keep it grouped as it is: file system attributes the
// crawler fills for every item, then what the importers add.
constexpr Row kRows[] = {
    // General and file system.
    {"kMDItemDisplayName", String, false, "Name", "Name of the item as shown to the user", FileSystem, true},
    {"kMDItemFSName", String, false, "Filename", "Name of the file in the file system", FileSystem, true},
    {"kMDItemPath", String, false, "Path", "Complete path to the file", FileSystem, false},
    {"kMDItemFSSize", Number, false, "Size", "Size of the file in bytes", FileSystem, false},
    {"kMDItemFSCreationDate", Date, false, "Created", "Date the file was created", FileSystem, false},
    {"kMDItemFSContentChangeDate", Date, false, "Modified", "Date the file's contents last changed",
     FileSystem, false},
    {"kMDItemContentCreationDate", Date, false, "Content created", "Date the content was created",
     FileSystem, false},
    {"kMDItemContentModificationDate", Date, false, "Content modified", "Date the content was last modified",
     FileSystem, false},
    {"kMDItemLastUsedDate", Date, false, "Last opened", "Date the file was last opened", FileSystem, false},
    {"kMDItemAttributeChangeDate", Date, false, "Attributes changed",
     "Date the file's attributes last changed", FileSystem, false},
    {"kMDItemKind", String, false, "Kind", "Description of the kind of item", FileSystem, true},
    {"kMDItemContentType", String, false, "Content type", "Type identifier of the file's content",
     FileSystem, false},
    {"kMDItemContentTypeTree", String, true, "Content type tree",
     "Type identifier of the content and all the types it conforms to", FileSystem, false},
    {"kMDItemFSInvisible", Boolean, false, "Invisible", "Whether the file is hidden", FileSystem, false},
    {"kMDItemFSLabel", Number, false, "Label", "Index of the colour label (0 to 7)", FileSystem, false},
    {"kMDItemFSOwnerUserID", Number, false, "Owner ID", "User ID of the file's owner", FileSystem, false},
    {"kMDItemFSOwnerGroupID", Number, false, "Group ID", "Group ID of the file's owner", FileSystem, false},
    {"kMDItemFSNodeCount", Number, false, "Items", "Number of entries in a folder", FileSystem, false},
    {"kMDItemFinderComment", String, false, "Comments", "Comment the user attached to the file", FileSystem,
     true},
    {"kMDItemOMUserTags", String, true, "Tags", "Tags the user attached to the file", FileSystem, true},
    {"kOMUserTags", String, true, "Tags", "Tags the user attached to the file", FileSystem, true},
    {"kMDItemUserTags", String, true, "Tags", "Tags the user attached to the file", FileSystem, true},
    {"kMDItemWhereFroms", String, true, "Where from", "Where the file was downloaded from", FileSystem, true},
    {"kMDItemTextContent", String, false, "Contents", "Text content of the file", FileSystem, false},

    // Documents.
    {"kMDItemTitle", String, false, "Title", "Title of the document", Document, true},
    {"kMDItemAuthors", String, true, "Authors", "Authors of the document", Document, true},
    {"kMDItemEditors", String, true, "Editors", "Editors of the document", Document, true},
    {"kMDItemKeywords", String, true, "Keywords", "Keywords of the document", Document, true},
    {"kMDItemContributors", String, true, "Contributors", "Contributors to the document", Document, true},
    {"kMDItemPublishers", String, true, "Publishers", "Publishers of the document", Document, true},
    {"kMDItemOrganizations", String, true, "Organizations", "Organisations that made the document", Document,
     true},
    {"kMDItemLanguages", String, true, "Languages", "Languages of the document", Document, true},
    {"kMDItemRecipients", String, true, "Recipients", "Recipients of the message", Document, true},
    {"kMDItemEmailAddresses", String, true, "Email addresses", "E-mail addresses in the document", Document,
     true},
    {"kMDItemAuthorEmailAddresses", String, true, "Author email addresses", "E-mail addresses of the authors",
     Document, true},
    {"kMDItemRecipientEmailAddresses", String, true, "Recipient email addresses",
     "E-mail addresses of the recipients", Document, true},
    {"kMDItemCopyright", String, false, "Copyright", "Copyright statement of the content", Document, true},
    {"kMDItemVersion", String, false, "Version", "Version of the content", Document, true},
    {"kMDItemCreator", String, false, "Creator", "Application that made the content", Document, true},
    {"kMDItemDescription", String, false, "Description", "Description of the content", Document, true},
    {"kMDItemSubject", String, false, "Subject", "Subject of the content", Document, true},
    {"kMDItemHeadline", String, false, "Headline", "Headline of the content", Document, true},
    {"kMDItemComment", String, false, "Comment", "Comment stored in the content", Document, true},
    {"kMDItemURL", String, false, "URL", "Web address of the content", Document, true},
    {"kMDItemNumberOfPages", Number, false, "Pages", "Number of pages", Document, false},
    {"kMDItemPageWidth", Number, false, "Page width", "Width of a page in points", Document, false},
    {"kMDItemPageHeight", Number, false, "Page height", "Height of a page in points", Document, false},
    {"kMDItemEncodingApplications", String, true, "Encoding software", "Software that encoded the content",
     Document, true},
    {"kMDItemFonts", String, true, "Fonts", "Fonts used in the document", Document, true},
    {"kMDItemSecurityMethod", String, false, "Security method", "Encryption of the document", Document, true},
    {"kMDItemStarRating", Number, false, "Rating", "Star rating of the content", Document, false},
    {"kMDItemDueDate", Date, false, "Due date", "Date the content is due", Document, false},

    // Images.
    {"kMDItemPixelWidth", Number, false, "Pixel width", "Width of the image in pixels", Image, false},
    {"kMDItemPixelHeight", Number, false, "Pixel height", "Height of the image in pixels", Image, false},
    {"kMDItemPixelCount", Number, false, "Pixel count", "Number of pixels in the image", Image, false},
    {"kMDItemBitsPerSample", Number, false, "Bits per sample", "Bits per sample of the image", Image, false},
    {"kMDItemResolutionWidthDPI", Number, false, "Horizontal resolution", "Horizontal resolution in dots per inch",
     Image, false},
    {"kMDItemResolutionHeightDPI", Number, false, "Vertical resolution", "Vertical resolution in dots per inch",
     Image, false},
    {"kMDItemFocalLength", Number, false, "Focal length", "Focal length of the lens in millimetres", Image, false},
    {"kMDItemFocalLength35mm", Number, false, "Focal length (35 mm)", "Focal length as on 35 mm film", Image,
     false},
    {"kMDItemFNumber", Number, false, "F number", "Aperture as an f-number", Image, false},
    {"kMDItemAperture", Number, false, "Aperture", "Aperture value of the exposure", Image, false},
    {"kMDItemExposureTimeSeconds", Number, false, "Exposure time", "Exposure time in seconds", Image, false},
    {"kMDItemISOSpeed", Number, false, "ISO speed", "ISO speed of the exposure", Image, false},
    {"kMDItemWhiteBalance", Number, false, "White balance", "White balance mode", Image, false},
    {"kMDItemOrientation", Number, false, "Orientation", "Orientation of the image", Image, false},
    {"kMDItemLatitude", Number, false, "Latitude", "Latitude where the image was taken", Image, false},
    {"kMDItemLongitude", Number, false, "Longitude", "Longitude where the image was taken", Image, false},
    {"kMDItemAltitude", Number, false, "Altitude", "Altitude where the image was taken, in metres", Image, false},
    {"kMDItemFlashOnOff", Boolean, false, "Flash", "Whether the flash fired", Image, false},
    {"kMDItemHasAlphaChannel", Boolean, false, "Alpha channel", "Whether the image has an alpha channel", Image,
     false},
    {"kMDItemColorSpace", String, false, "Color space", "Colour space of the image", Image, true},
    {"kMDItemProfileName", String, false, "Color profile", "Name of the image's colour profile", Image, true},
    {"kMDItemAcquisitionMake", String, false, "Device make", "Maker of the camera or scanner", Image, true},
    {"kMDItemAcquisitionModel", String, false, "Device model", "Model of the camera or scanner", Image, true},
    {"kMDItemLensModel", String, false, "Lens model", "Model of the lens", Image, true},
    {"kMDItemExposureProgram", String, false, "Exposure program", "Exposure program of the camera", Image, true},
    {"kMDItemEXIFVersion", String, false, "EXIF version", "Version of the EXIF data", Image, true},
    {"kMDItemLayerNames", String, true, "Layer names", "Names of the image's layers", Image, true},

    // Audio and video.
    {"kMDItemDurationSeconds", Number, false, "Duration", "Duration in seconds", Media, false},
    {"kMDItemAudioBitRate", Number, false, "Audio bit rate", "Audio bit rate in kilobits per second", Media,
     false},
    {"kMDItemVideoBitRate", Number, false, "Video bit rate", "Video bit rate in kilobits per second", Media,
     false},
    {"kMDItemTotalBitRate", Number, false, "Total bit rate", "Total bit rate in kilobits per second", Media,
     false},
    {"kMDItemAudioSampleRate", Number, false, "Sample rate", "Audio sample rate in hertz", Media, false},
    {"kMDItemAudioChannelCount", Number, false, "Audio channels", "Number of audio channels", Media, false},
    {"kMDItemAudioTrackNumber", Number, false, "Track number", "Track number on the album", Media, false},
    {"kMDItemTempo", Number, false, "Tempo", "Tempo in beats per minute", Media, false},
    {"kMDItemRecordingYear", Number, false, "Year recorded", "Year of the recording", Media, false},
    {"kMDItemRecordingDate", Date, false, "Recording date", "Date of the recording", Media, false},
    {"kMDItemAlbum", String, false, "Album", "Album the recording belongs to", Media, true},
    {"kMDItemMusicalGenre", String, false, "Musical genre", "Musical genre of the recording", Media, true},
    {"kMDItemComposer", String, false, "Composer", "Composer of the music", Media, true},
    {"kMDItemLyricist", String, false, "Lyricist", "Author of the lyrics", Media, true},
    {"kMDItemKeySignature", String, false, "Key signature", "Musical key of the recording", Media, true},
    {"kMDItemTimeSignature", String, false, "Time signature", "Time signature of the music", Media, true},
    {"kMDItemDirector", String, false, "Director", "Director of the film", Media, true},
    {"kMDItemProducer", String, false, "Producer", "Producer of the content", Media, true},
    {"kMDItemGenre", String, false, "Genre", "Genre of the content", Media, true},
    {"kMDItemCodecs", String, true, "Codecs", "Codecs used to encode the content", Media, true},
    {"kMDItemMediaTypes", String, true, "Media types", "Types of media in the content", Media, true},
    {"kMDItemPerformers", String, true, "Performers", "Performers of the recording", Media, true},
};

std::vector<AttributeInfo> builtinAttributes()
{
    std::vector<AttributeInfo> attributes;
    attributes.reserve(std::size(kRows));
    for (const Row& row : kRows) {
        attributes.push_back({row.key, row.type, row.list, row.name, row.description, row.source, row.anyText});
    }
    return attributes;
}

}  // namespace

Schema::Schema(std::vector<AttributeInfo> attributes)
    : m_attributes(std::move(attributes))
{
    for (std::size_t i = 0; i < m_attributes.size(); ++i) {
        m_byKey.emplace(m_attributes[i].key, i);
    }
}

const Schema& Schema::builtin()
{
    static const Schema schema(builtinAttributes());
    return schema;
}

const AttributeInfo* Schema::find(std::string_view key) const
{
    auto it = m_byKey.find(key);
    return it == m_byKey.end() ? nullptr : &m_attributes[it->second];
}

}  // namespace trovara::index
