// Images (Exiv2): pixel size, camera and lens, exposure, focal length,
// flash, orientation, GPS position, dates, and the descriptions, titles,
// keywords and authors of EXIF, IPTC and XMP. Where Exiv2 cannot tell the
// size, Qt's image reader reads it from the file's header. SVG drawings
// (plain or gzip-compressed) get the size they are drawn at by default, from
// Qt's SVG renderer. Captions and descriptions are the image's text content.
#include "importers/importer.h"

#include "index/query/time_value.h"

#include <exiv2/exiv2.hpp>

#include <QImage>
#include <QImageReader>
#include <QString>
#include <QSvgRenderer>

#include <cmath>

namespace trovara::importers {

namespace {

class QuietExiv2 {
public:
    QuietExiv2()
    {
        Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
        Exiv2::XmpParser::initialize();
    }
};

template <typename Datum, typename Key, typename Data>
const Datum* findDatum(const Data& data, const char* key)
{
    try {
        const auto it = data.findKey(Key(key));
        return it == data.end() || it->count() == 0 ? nullptr : &*it;
    } catch (const Exiv2::AnyError&) {
        return nullptr;
    }
}

const Exiv2::Exifdatum* exif(const Exiv2::ExifData& data, const char* key)
{
    return findDatum<Exiv2::Exifdatum, Exiv2::ExifKey>(data, key);
}

const Exiv2::Iptcdatum* iptc(const Exiv2::IptcData& data, const char* key)
{
    return findDatum<Exiv2::Iptcdatum, Exiv2::IptcKey>(data, key);
}

const Exiv2::Xmpdatum* xmp(const Exiv2::XmpData& data, const char* key)
{
    return findDatum<Exiv2::Xmpdatum, Exiv2::XmpKey>(data, key);
}

// A rational or number as a double; none for 0/0 and the like.
std::optional<double> number(const Exiv2::Exifdatum* datum, long n = 0)
{
    if (!datum || datum->count() <= n) {
        return std::nullopt;
    }
    const Exiv2::Rational r = datum->toRational(n);
    if (r.second == 0) {
        const double value = datum->toFloat(n);
        return std::isfinite(value) ? std::optional<double>(value) : std::nullopt;
    }
    return static_cast<double>(r.first) / r.second;
}

// "2024:03:01 10:20:30" (EXIF's local time) as seconds since 2001.
std::optional<double> exifDate(const std::string& text)
{
    if (text.size() < 19) {
        return std::nullopt;
    }
    std::string iso = text.substr(0, 19);
    iso[4] = '-';
    iso[7] = '-';
    iso[10] = 'T';
    const std::optional<index::query::IsoDateTime> parsed = index::query::parseIsoDateTime(iso);
    if (!parsed) {
        return std::nullopt;
    }
    return index::query::isoToReference(*parsed);
}

// Degrees, minutes, seconds and the N/S or E/W reference.
std::optional<double> coordinate(const Exiv2::ExifData& data, const char* key, const char* referenceKey, char negative)
{
    const Exiv2::Exifdatum* value = exif(data, key);
    if (!value || value->count() < 3) {
        return std::nullopt;
    }
    const auto degrees = number(value, 0);
    const auto minutes = number(value, 1);
    const auto seconds = number(value, 2);
    if (!degrees || !minutes || !seconds) {
        return std::nullopt;
    }
    double result = *degrees + *minutes / 60 + *seconds / 3600;
    if (const Exiv2::Exifdatum* reference = exif(data, referenceKey)) {
        const std::string side = reference->toString();
        if (!side.empty() && side[0] == negative) {
            result = -result;
        }
    }
    return result;
}

std::string text(const Exiv2::Metadatum* datum)
{
    if (!datum) {
        return {};
    }
    std::string value = datum->toString();
    // XMP language alternatives read 'lang="x-default" Text'.
    if (value.starts_with("lang=")) {
        const std::size_t space = value.find(' ');
        value = space == std::string::npos ? std::string() : value.substr(space + 1);
    }
    return value;
}

class ImageImporter final : public Importer {
public:
    ImageImporter()
    {
        static QuietExiv2 quiet;
        m_info.name = "image";
        m_info.version = "1";
        m_info.contentTypes = {"public.image"};
    }

    const index::ImporterInfo& info() const override { return m_info; }

    Expected<void> importFile(const ImportContext& context, ImportSink& sink) const override
    {
        if (context.mimeType == "image/svg+xml" || context.mimeType == "image/svg+xml-compressed") {
            return importDrawing(context, sink);
        }
        QImageReader reader(QString::fromStdString(context.path));
        std::unique_ptr<Exiv2::Image> image;
        try {
            auto opened = Exiv2::ImageFactory::open(context.path);
            image.reset(opened.release());
            image->readMetadata();
        } catch (const Exiv2::AnyError& error) {
            image.reset();
            if (!reader.canRead()) {
                return importFailure(std::string("not a readable image: ") + error.what());
            }
        }
        int width = image ? image->pixelWidth() : 0;
        int height = image ? image->pixelHeight() : 0;
        if ((width <= 0 || height <= 0) && reader.canRead()) {
            const QSize size = reader.size();
            width = size.width();
            height = size.height();
        }
        setPixelSize(sink, width, height);
        if (reader.canRead()) {
            const QImage::Format format = reader.imageFormat();
            if (format != QImage::Format_Invalid) {
                sink.setBoolean("kMDItemHasAlphaChannel",
                                QImage::toPixelFormat(format).alphaUsage() == QPixelFormat::UsesAlpha);
            }
        }
        if (!image) {
            return {};
        }
        readExif(image->exifData(), sink);
        readIptc(image->iptcData(), sink);
        readXmp(image->xmpData(), sink);
        for (const char* key : {"kMDItemTitle", "kMDItemHeadline", "kMDItemDescription"}) {
            if (const std::string caption = sink.textOf(key); !caption.empty()) {
                sink.appendText(caption);
                sink.breakText();
            }
        }
        return {};
    }

private:
    static void setPixelSize(ImportSink& sink, int width, int height)
    {
        if (width > 0 && height > 0) {
            sink.setNumber("kMDItemPixelWidth", width);
            sink.setNumber("kMDItemPixelHeight", height);
            sink.setNumber("kMDItemPixelCount", static_cast<double>(width) * height);
        }
    }

    static Expected<void> importDrawing(const ImportContext& context, ImportSink& sink)
    {
        const QSvgRenderer drawing(QString::fromStdString(context.path));
        if (!drawing.isValid()) {
            return importFailure("not a readable SVG drawing");
        }
        const QSize size = drawing.defaultSize();
        setPixelSize(sink, size.width(), size.height());
        sink.setBoolean("kMDItemHasAlphaChannel", true);  // what is not drawn is transparent
        return {};
    }

    static void readExif(const Exiv2::ExifData& data, ImportSink& sink)
    {
        if (data.empty()) {
            return;
        }
        sink.setText("kMDItemAcquisitionMake", text(exif(data, "Exif.Image.Make")));
        sink.setText("kMDItemAcquisitionModel", text(exif(data, "Exif.Image.Model")));
        sink.setText("kMDItemLensModel", text(exif(data, "Exif.Photo.LensModel")));
        sink.setText("kMDItemCreator", text(exif(data, "Exif.Image.Software")));
        sink.setText("kMDItemCopyright", text(exif(data, "Exif.Image.Copyright")));
        if (const std::string artist = text(exif(data, "Exif.Image.Artist")); !artist.empty()) {
            sink.setList("kMDItemAuthors", {artist});
        }
        sink.setText("kMDItemDescription", text(exif(data, "Exif.Image.ImageDescription")));
        const std::pair<const char*, const char*> numbers[] = {
            {"Exif.Photo.FNumber", "kMDItemFNumber"},
            {"Exif.Photo.ApertureValue", "kMDItemAperture"},
            {"Exif.Photo.ExposureTime", "kMDItemExposureTimeSeconds"},
            {"Exif.Photo.ISOSpeedRatings", "kMDItemISOSpeed"},
            {"Exif.Photo.FocalLength", "kMDItemFocalLength"},
            {"Exif.Photo.FocalLengthIn35mmFilm", "kMDItemFocalLength35mm"},
            {"Exif.Photo.WhiteBalance", "kMDItemWhiteBalance"},
            {"Exif.Image.Orientation", "kMDItemOrientation"},
            {"Exif.Image.BitsPerSample", "kMDItemBitsPerSample"},
        };
        for (const auto& [key, attribute] : numbers) {
            if (const auto value = number(exif(data, key))) {
                sink.setNumber(attribute, *value);
            }
        }
        // Resolution in dots per inch (unit 3 is centimetres).
        const auto unit = number(exif(data, "Exif.Image.ResolutionUnit"));
        const double perInch = unit && *unit == 3 ? 2.54 : 1.0;
        if (const auto x = number(exif(data, "Exif.Image.XResolution"))) {
            sink.setNumber("kMDItemResolutionWidthDPI", *x * perInch);
        }
        if (const auto y = number(exif(data, "Exif.Image.YResolution"))) {
            sink.setNumber("kMDItemResolutionHeightDPI", *y * perInch);
        }
        if (const auto flash = number(exif(data, "Exif.Photo.Flash"))) {
            sink.setBoolean("kMDItemFlashOnOff", (static_cast<long>(*flash) & 1) != 0);
        }
        if (const Exiv2::Exifdatum* program = exif(data, "Exif.Photo.ExposureProgram")) {
            sink.setText("kMDItemExposureProgram", program->print(&data));
        }
        if (const Exiv2::Exifdatum* version = exif(data, "Exif.Photo.ExifVersion")) {
            sink.setText("kMDItemEXIFVersion", version->print(&data));
        }
        if (const Exiv2::Exifdatum* space = exif(data, "Exif.Photo.ColorSpace")) {
            sink.setText("kMDItemColorSpace", space->toLong() == 1 ? "RGB" : space->print(&data));
        }
        for (const char* key : {"Exif.Photo.DateTimeOriginal", "Exif.Image.DateTime"}) {
            if (const auto date = exifDate(text(exif(data, key)))) {
                sink.setDate("kMDItemContentCreationDate", *date);
                break;
            }
        }
        if (const auto latitude = coordinate(data, "Exif.GPSInfo.GPSLatitude", "Exif.GPSInfo.GPSLatitudeRef", 'S')) {
            sink.setNumber("kMDItemLatitude", *latitude);
        }
        if (const auto longitude = coordinate(data, "Exif.GPSInfo.GPSLongitude", "Exif.GPSInfo.GPSLongitudeRef", 'W')) {
            sink.setNumber("kMDItemLongitude", *longitude);
        }
        if (auto altitude = number(exif(data, "Exif.GPSInfo.GPSAltitude"))) {
            const auto below = number(exif(data, "Exif.GPSInfo.GPSAltitudeRef"));
            sink.setNumber("kMDItemAltitude", below && *below == 1 ? -*altitude : *altitude);
        }
    }

    static void readIptc(const Exiv2::IptcData& data, ImportSink& sink)
    {
        if (data.empty()) {
            return;
        }
        std::vector<std::string> keywords;
        for (const Exiv2::Iptcdatum& datum : data) {
            if (datum.key() == "Iptc.Application2.Keywords") {
                keywords.push_back(datum.toString());
            }
        }
        sink.setList("kMDItemKeywords", keywords);
        sink.setText("kMDItemTitle", text(iptc(data, "Iptc.Application2.ObjectName")));
        sink.setText("kMDItemHeadline", text(iptc(data, "Iptc.Application2.Headline")));
        if (const std::string caption = text(iptc(data, "Iptc.Application2.Caption")); !caption.empty()) {
            sink.setText("kMDItemDescription", caption);
        }
        if (const std::string byline = text(iptc(data, "Iptc.Application2.Byline")); !byline.empty()) {
            sink.setList("kMDItemAuthors", {byline});
        }
    }

    static void readXmp(const Exiv2::XmpData& data, ImportSink& sink)
    {
        if (data.empty()) {
            return;
        }
        if (const std::string title = text(xmp(data, "Xmp.dc.title")); !title.empty()) {
            sink.setText("kMDItemTitle", title);
        }
        if (const std::string description = text(xmp(data, "Xmp.dc.description")); !description.empty()) {
            sink.setText("kMDItemDescription", description);
        }
        if (const Exiv2::Xmpdatum* creator = xmp(data, "Xmp.dc.creator")) {
            std::vector<std::string> authors;
            for (long i = 0; i < creator->count(); ++i) {
                authors.push_back(creator->toString(i));
            }
            sink.setList("kMDItemAuthors", authors);
        }
        if (const Exiv2::Xmpdatum* subject = xmp(data, "Xmp.dc.subject")) {
            std::vector<std::string> keywords;
            for (long i = 0; i < subject->count(); ++i) {
                keywords.push_back(subject->toString(i));
            }
            sink.setList("kMDItemKeywords", keywords);
        }
        if (const Exiv2::Xmpdatum* rating = xmp(data, "Xmp.xmp.Rating")) {
            sink.setNumber("kMDItemStarRating", rating->toFloat());
        }
    }

    index::ImporterInfo m_info;
};

}  // namespace

std::unique_ptr<Importer> makeImageImporter()
{
    return std::make_unique<ImageImporter>();
}

}  // namespace trovara::importers
