#include "model/finder_label_value.h"

#include "model/localization.h"
#include "model/value_text.h"

#include <QSettings>
#include <QStandardPaths>

namespace trovara::model {

namespace {

std::vector<std::unique_ptr<FinderLabelValue>>& storage()
{
    static std::vector<std::unique_ptr<FinderLabelValue>> values;
    return values;
}

// The names as read when the first label was asked for.
std::optional<QStringList>& cachedNames()
{
    static std::optional<QStringList> names;
    return names;
}

LabelColor rgb(int red, int green, int blue)
{
    return {red / 255.0, green / 255.0, blue / 255.0, 1.0};
}

}  // namespace

FinderLabelValue::FinderLabelValue(int number, std::optional<LabelColor> color)
    : Value(number)
    , m_color(color)
{
}

const std::vector<const FinderLabelValue*>& FinderLabelValue::finderLabelValues()
{
    static const std::vector<const FinderLabelValue*> list = [] {
        const std::pair<int, std::optional<LabelColor>> entries[] = {
            {kAnyLabel, std::nullopt},
            {0, LabelColor{0, 0, 0, 0}},
            {1, rgb(168, 168, 168)},
            {2, rgb(174, 216, 65)},
            {3, rgb(194, 138, 217)},
            {4, rgb(92, 160, 255)},
            {5, rgb(235, 219, 65)},
            {6, rgb(252, 99, 89)},
            {7, rgb(246, 170, 62)},
        };
        std::vector<const FinderLabelValue*> values;
        for (const auto& [number, color] : entries) {
            storage().push_back(std::make_unique<FinderLabelValue>(number, color));
            values.push_back(storage().back().get());
        }
        return values;
    }();
    return list;
}

QString FinderLabelValue::preferencesFile()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
           + QStringLiteral("/Trovara/Labels.conf");
}

QStringList FinderLabelValue::finderLabelNames()
{
    QStringList names;
    for (const char* name : {"None", "Gray", "Green", "Purple", "Blue", "Yellow", "Red", "Orange"}) {
        names << localized(QString::fromLatin1(name));
    }
    const QSettings preferences(preferencesFile(), QSettings::IniFormat);
    for (const QString& key : preferences.allKeys()) {
        // The key's text from the twelfth character on is the label number.
        const std::int64_t index = integerValueOf(key.mid(11));
        if (index >= 0 && index < names.size()) {
            names[static_cast<int>(index)] = preferences.value(key).toString();
        }
    }
    return names;
}

void FinderLabelValue::resetLabelsForTesting()
{
    cachedNames().reset();
    for (const FinderLabelValue* value : finderLabelValues()) {
        value->m_label.reset();
    }
}

QString FinderLabelValue::label() const
{
    if (!m_label) {
        const int n = number();
        if (n == 0) {
            m_label = localized(QStringLiteral("- None"));
        } else if (n == kAnyLabel) {
            m_label = localized(QStringLiteral("- Any"));
        } else {
            if (!cachedNames()) {
                cachedNames() = finderLabelNames();
            }
            const QStringList& names = *cachedNames();
            m_label = n > 0 && n < names.size() ? names[n] : QString();
        }
    }
    return *m_label;
}

std::unique_ptr<Value> FinderLabelValue::copy() const
{
    return std::make_unique<FinderLabelValue>(number(), m_color);
}

}  // namespace trovara::model
