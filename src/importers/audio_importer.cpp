// Audio files (TagLib): title, artist, album, genre, year, track, composer,
// lyricist, tempo, and the stream's duration, bit rate, sample rate and
// channels. Lyrics and comments are the file's text content.
#include "importers/importer.h"

#include <taglib/audioproperties.h>
#include <taglib/fileref.h>
#include <taglib/tag.h>
#include <taglib/tdebuglistener.h>
#include <taglib/tpropertymap.h>

namespace trovara::importers {

namespace {

// TagLib's complaints about damaged files are not ours to print.
class QuietTagLib final : public TagLib::DebugListener {
public:
    QuietTagLib() { TagLib::setDebugListener(this); }
    void printMessage(const TagLib::String&) override {}
};

std::string utf8(const TagLib::String& text)
{
    return text.to8Bit(true);
}

std::vector<std::string> values(const TagLib::PropertyMap& properties, const char* key)
{
    std::vector<std::string> list;
    const auto it = properties.find(key);
    if (it != properties.end()) {
        for (const TagLib::String& value : it->second) {
            list.push_back(utf8(value));
        }
    }
    return list;
}

// The codec, from the MIME type.
std::string codecOf(const std::string& mime)
{
    if (mime == "audio/mpeg") {
        return "MP3";
    }
    if (mime == "audio/flac" || mime == "audio/x-flac") {
        return "FLAC";
    }
    if (mime.find("ogg") != std::string::npos || mime.find("vorbis") != std::string::npos) {
        return "Vorbis";
    }
    if (mime == "audio/mp4" || mime == "audio/x-m4a" || mime == "audio/aac") {
        return "AAC";
    }
    if (mime.find("wav") != std::string::npos) {
        return "PCM";
    }
    return {};
}

class AudioImporter final : public Importer {
public:
    AudioImporter()
    {
        static QuietTagLib quiet;
        m_info.name = "audio";
        m_info.version = "1";
        m_info.contentTypes = {"public.audio"};
    }

    const index::ImporterInfo& info() const override { return m_info; }

    Expected<void> importFile(const ImportContext& context, ImportSink& sink) const override
    {
        TagLib::FileRef file(context.path.c_str(), true, TagLib::AudioProperties::Average);
        if (file.isNull()) {
            return importFailure("not a readable audio file");
        }
        // TagLib accepts any bytes under a known extension; without a frame
        // of sound in it, the file is not what it claims to be.
        const TagLib::AudioProperties* audio = file.audioProperties();
        if (!audio || audio->sampleRate() <= 0) {
            return importFailure("no audio stream found");
        }
        if (const TagLib::Tag* tag = file.tag()) {
            sink.setText("kMDItemTitle", utf8(tag->title()));
            if (const std::string artist = utf8(tag->artist()); !artist.empty()) {
                sink.setList("kMDItemAuthors", {artist});
                sink.setList("kMDItemPerformers", {artist});
            }
            sink.setText("kMDItemAlbum", utf8(tag->album()));
            sink.setText("kMDItemMusicalGenre", utf8(tag->genre()));
            sink.setText("kMDItemComment", utf8(tag->comment()));
            if (tag->year() > 0) {
                sink.setNumber("kMDItemRecordingYear", tag->year());
            }
            if (tag->track() > 0) {
                sink.setNumber("kMDItemAudioTrackNumber", tag->track());
            }
        }
        const TagLib::PropertyMap properties = file.file()->properties();
        if (const auto composers = values(properties, "COMPOSER"); !composers.empty()) {
            sink.setText("kMDItemComposer", composers.front());
        }
        if (const auto lyricists = values(properties, "LYRICIST"); !lyricists.empty()) {
            sink.setText("kMDItemLyricist", lyricists.front());
        }
        if (const auto tempo = values(properties, "BPM"); !tempo.empty()) {
            if (const double bpm = std::atof(tempo.front().c_str()); bpm > 0) {
                sink.setNumber("kMDItemTempo", bpm);
            }
        }
        if (audio->lengthInMilliseconds() > 0) {
            sink.setNumber("kMDItemDurationSeconds", audio->lengthInMilliseconds() / 1000.0);
        }
        if (audio->bitrate() > 0) {
            sink.setNumber("kMDItemAudioBitRate", audio->bitrate());
            sink.setNumber("kMDItemTotalBitRate", audio->bitrate());
        }
        sink.setNumber("kMDItemAudioSampleRate", audio->sampleRate());
        if (audio->channels() > 0) {
            sink.setNumber("kMDItemAudioChannelCount", audio->channels());
        }
        if (const std::string codec = codecOf(context.mimeType); !codec.empty()) {
            sink.setList("kMDItemCodecs", {codec});
        }
        sink.setList("kMDItemMediaTypes", {"Sound"});
        for (const std::string& lyrics : values(properties, "LYRICS")) {
            sink.appendText(lyrics);
            sink.breakText();
        }
        if (const std::string comment = sink.textOf("kMDItemComment"); !comment.empty()) {
            sink.appendText(comment);
        }
        return {};
    }

private:
    index::ImporterInfo m_info;
};

}  // namespace

std::unique_ptr<Importer> makeAudioImporter()
{
    return std::make_unique<AudioImporter>();
}

}  // namespace trovara::importers
