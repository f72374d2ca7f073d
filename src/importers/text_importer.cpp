// Plain text and source code: the file's bytes in the encoding detected
// (index/text/encoding.h), up to the text limit.
#include "importers/importer.h"

#include "index/text/encoding.h"

namespace trovara::importers {

namespace {

class TextImporter final : public Importer {
public:
    TextImporter()
    {
        m_info.name = "text";
        m_info.version = "1";
        m_info.contentTypes = {"public.text"};
    }

    const index::ImporterInfo& info() const override { return m_info; }

    Expected<void> importFile(const ImportContext& context, ImportSink& sink) const override
    {
        Expected<index::text::DecodedText> text = index::text::readTextFile(context.path, sink.textLimit());
        if (!text) {
            return text.error();
        }
        sink.appendText(text->text);
        if (text->truncated) {
            sink.markTruncated();
        }
        return {};
    }

private:
    index::ImporterInfo m_info;
};

}  // namespace

std::unique_ptr<Importer> makeTextImporter()
{
    return std::make_unique<TextImporter>();
}

}  // namespace trovara::importers
