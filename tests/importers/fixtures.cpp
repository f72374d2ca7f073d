#include "fixtures.h"

#include <zip.h>
#include <zlib.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace trovara::test {

void writeBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

void writePdf(const std::string& path, const std::vector<std::string>& pageTexts,
              const std::map<std::string, std::string>& info)
{
    // Objects: 1 catalog, 2 pages, 3 font, 4 info, then a page and its
    // content stream per text.
    std::vector<std::string> objects;
    std::string kids;
    for (std::size_t i = 0; i < pageTexts.size(); ++i) {
        kids += std::to_string(5 + 2 * i) + " 0 R ";
    }
    objects.push_back("<< /Type /Catalog /Pages 2 0 R >>");
    objects.push_back("<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(pageTexts.size()) + " >>");
    objects.push_back("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
    std::string infoDictionary = "<<";
    for (const auto& [key, value] : info) {
        infoDictionary += " /" + key + " " + value;
    }
    objects.push_back(infoDictionary + " >>");
    for (std::size_t i = 0; i < pageTexts.size(); ++i) {
        const std::string stream = "BT /F1 12 Tf 72 720 Td (" + pageTexts[i] + ") Tj ET";
        objects.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Contents "
                          + std::to_string(6 + 2 * i) + " 0 R /Resources << /Font << /F1 3 0 R >> >> >>");
        objects.push_back("<< /Length " + std::to_string(stream.size()) + " >>\nstream\n" + stream + "\nendstream");
    }
    std::string out = "%PDF-1.4\n%\xe2\xe3\xcf\xd3\n";
    std::vector<std::size_t> offsets;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        offsets.push_back(out.size());
        out += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    const std::size_t xref = out.size();
    out += "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (const std::size_t offset : offsets) {
        char line[32];
        std::snprintf(line, sizeof line, "%010zu 00000 n \n", offset);
        out += line;
    }
    out += "trailer\n<< /Size " + std::to_string(objects.size() + 1) + " /Root 1 0 R /Info 4 0 R >>\nstartxref\n"
           + std::to_string(xref) + "\n%%EOF\n";
    writeBytes(path, out);
}

void writeZip(const std::string& path, const std::vector<std::pair<std::string, std::string>>& parts, bool deflate)
{
    int error = 0;
    zip_t* archive = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
    if (!archive) {
        return;
    }
    for (const auto& [name, content] : parts) {
        zip_source_t* source = zip_source_buffer(archive, content.data(), content.size(), 0);
        const zip_int64_t index = zip_file_add(archive, name.c_str(), source, ZIP_FL_OVERWRITE);
        zip_set_file_compression(archive, static_cast<zip_uint64_t>(index), deflate ? ZIP_CM_DEFLATE : ZIP_CM_STORE, 1);
    }
    zip_close(archive);  // writes; the buffers must live until here
}

namespace {

void putBigEndian16(std::string& out, int value)
{
    out += static_cast<char>((value >> 8) & 0xFF);
    out += static_cast<char>(value & 0xFF);
}

void putBigEndian32(std::string& out, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        out += static_cast<char>((value >> shift) & 0xFF);
    }
}

std::string pngChunk(const std::string& type, const std::string& data)
{
    std::string chunk;
    putBigEndian32(chunk, static_cast<std::uint32_t>(data.size()));
    const std::string body = type + data;
    chunk += body;
    putBigEndian32(chunk, static_cast<std::uint32_t>(crc32(0, reinterpret_cast<const Bytef*>(body.data()),
                                                           static_cast<uInt>(body.size()))));
    return chunk;
}

}  // namespace

std::string jpegBytes(int width, int height)
{
    std::string out = "\xFF\xD8";                                                  // start of image
    out += std::string("\xFF\xE0\x00\x10JFIF\x00\x01\x01\x00\x00\x01\x00\x01\x00\x00", 18);  // JFIF header
    out += std::string("\xFF\xDB\x00\x43\x00", 5) + std::string(64, '\x01');     // a flat quantisation table
    out += std::string("\xFF\xC0\x00\x0B\x08", 5);                               // baseline frame, 8 bits
    putBigEndian16(out, height);
    putBigEndian16(out, width);
    out += std::string("\x01\x01\x11\x00", 4);                                   // one component
    out += std::string("\xFF\xC4\x00\x14\x00\x01", 6) + std::string(15, '\0') + std::string(1, '\0');  // DC table
    out += std::string("\xFF\xC4\x00\x14\x10\x01", 6) + std::string(15, '\0') + std::string(1, '\0');  // AC table
    out += std::string("\xFF\xDA\x00\x08\x01\x01\x00\x00\x3F\x00", 10) + "\x3F";  // scan
    out += "\xFF\xD9";                                                            // end of image
    return out;
}

std::string pngBytes(int width, int height)
{
    std::string header;
    putBigEndian32(header, static_cast<std::uint32_t>(width));
    putBigEndian32(header, static_cast<std::uint32_t>(height));
    header += std::string("\x08\x06\x00\x00\x00", 5);  // 8 bits, RGBA
    std::string rows;
    for (int y = 0; y < height; ++y) {
        rows += '\0';
        for (int x = 0; x < width; ++x) {
            rows += std::string("\x20\x40\x80\x7F", 4);
        }
    }
    uLongf size = compressBound(static_cast<uLong>(rows.size()));
    std::string packed(size, '\0');
    compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(rows.data()),
             static_cast<uLong>(rows.size()));
    packed.resize(size);
    return "\x89PNG\r\n\x1A\n" + pngChunk("IHDR", header) + pngChunk("IDAT", packed) + pngChunk("IEND", "");
}

std::string gifBytes(int width, int height)
{
    std::string out = "GIF89a";
    out += static_cast<char>(width & 0xFF);
    out += static_cast<char>(width >> 8);
    out += static_cast<char>(height & 0xFF);
    out += static_cast<char>(height >> 8);
    out += std::string("\x80\x00\x00", 3) + std::string("\x00\x00\x00\xFF\xFF\xFF", 6);  // two-colour table
    out += ",";                                                                         // image descriptor
    out += std::string(4, '\0');
    out += static_cast<char>(width & 0xFF);
    out += static_cast<char>(width >> 8);
    out += static_cast<char>(height & 0xFF);
    out += static_cast<char>(height >> 8);
    out += '\0';
    out += std::string("\x02\x02\x44\x01\x00", 5);  // LZW: one clear code, a pixel, the end
    out += ";";
    return out;
}

std::string silentMp3Bytes(int frames)
{
    // 128 kbit/s at 44.1 kHz: 417-byte frames; joint stereo.
    const std::string frame = std::string("\xFF\xFB\x90\x64", 4) + std::string(413, '\0');
    std::string out;
    for (int i = 0; i < frames; ++i) {
        out += frame;
    }
    return out;
}

}  // namespace trovara::test
