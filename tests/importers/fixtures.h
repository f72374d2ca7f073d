// Files in real formats, made by the tests themselves: PDF, OpenDocument,
// Office Open XML and EPUB archives, JPEG with EXIF, PNG, GIF, MP3 with
// tags, e-mail. Each function writes the file at `path`.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace trovara::test {

void writeBytes(const std::string& path, const std::string& bytes);
std::string readBytes(const std::string& path);

// A PDF with one page per text, and an information dictionary (its values
// as written, e.g. "(Title)" or "<FEFF…>").
void writePdf(const std::string& path, const std::vector<std::string>& pageTexts,
              const std::map<std::string, std::string>& info);

// A zip archive of the given parts (name, content), stored or deflated.
void writeZip(const std::string& path, const std::vector<std::pair<std::string, std::string>>& parts,
              bool deflate = true);

// A baseline JPEG header announcing `width` × `height` (the scan is a
// stand-in): enough for metadata readers, which read no pixels.
std::string jpegBytes(int width, int height);
// A valid PNG of the given size, with an alpha channel.
std::string pngBytes(int width, int height);
// A valid one-colour GIF of the given size.
std::string gifBytes(int width, int height);
// MPEG-1 Layer III frames of silence, 128 kbit/s, 44.1 kHz, stereo.
std::string silentMp3Bytes(int frames);

}  // namespace trovara::test
