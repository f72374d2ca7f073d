// Colour labels: the numbers 0 to 7 a file can carry (0 is no label), plus
// the "any label" entry used by criteria. Their names come from the user's
// label preferences file when it renames them.
//
// The label preferences file is ~/.config/Trovara/Labels.conf, INI, with
// keys such as "Label_Name_3": the key's text from its twelfth character on
// is the label number, the value its name. It is read once, when labels are
// first asked for.
#pragma once

#include "model/value.h"

#include <QStringList>

#include <climits>
#include <optional>
#include <vector>

namespace trovara::model {

struct LabelColor {
    double red = 0;
    double green = 0;
    double blue = 0;
    double alpha = 1;
};

class FinderLabelValue final : public Value {
public:
    // The number of the "any label" entry: the smallest 32-bit integer.
    static constexpr int kAnyLabel = INT_MIN;

    // Nine values sorted by number: any, none (0), then 1 to 7.
    static const std::vector<const FinderLabelValue*>& finderLabelValues();
    // The eight names, index 0 to 7, with the user's renamings applied.
    static QStringList finderLabelNames();
    static QString preferencesFile();
    // Forgets the cached labels so that the next request reads the
    // preferences file again (tests only; the application reads it once).
    static void resetLabelsForTesting();

    FinderLabelValue(int number, std::optional<LabelColor> color);

    int number() const { return representation().toInt(); }
    // None for the "any" entry; fully transparent for "none".
    const std::optional<LabelColor>& color() const { return m_color; }
    QString label() const override;
    std::unique_ptr<Value> copy() const override;

private:
    std::optional<LabelColor> m_color;
    mutable std::optional<QString> m_label;
};

}  // namespace trovara::model
