#include "model/content_type.h"

#include "model/localization.h"

#include <algorithm>

namespace trovara::model {

ContentType::ContentType(QString uti)
    : Value(std::move(uti))
{
}

const std::vector<const ContentType*>& ContentType::contentTypes()
{
    static const std::vector<const ContentType*> list = [] {
        static const char* const identifiers[] = {
            "",
            "public.image",
            "public.text",
            "com.adobe.pdf",
            "public.movie",
            "public.audio",
            "public.content",
            "public.message",
            "public.vcard",
            "public.folder",
            "com.apple.application",
            "public.presentation",
            "com.apple.mail.emlx",
            "public.disk-image",
            "com.apple.alias-file",
            "public.source-code",
            "com.apple.webarchive",
        };
        static std::vector<std::unique_ptr<ContentType>> storage;
        std::vector<const ContentType*> types;
        for (const char* identifier : identifiers) {
            storage.push_back(std::make_unique<ContentType>(QString::fromLatin1(identifier)));
            types.push_back(storage.back().get());
        }
        std::stable_sort(types.begin(), types.end(), [](const ContentType* a, const ContentType* b) {
            return a->label().compare(b->label()) < 0;
        });
        return types;
    }();
    return list;
}

QString ContentType::label() const
{
    if (!m_label) {
        const QString uti = utiString();
        m_label = uti.isEmpty() ? localized(QStringLiteral("- Any")) : localizedFromTable("Types", uti);
    }
    return *m_label;
}

std::unique_ptr<Value> ContentType::copy() const
{
    return std::make_unique<ContentType>(utiString());
}

}  // namespace trovara::model
