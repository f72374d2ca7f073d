// File sizes as text: "512.000 Bytes", "1.001 KB", "1.500 MB", "2000.000 GB".
//
// Always three fraction digits, also for plain byte counts. The unit is the
// largest of Bytes, KB, MB and GB under which the number is at most the
// base (1000; 1024 on a toolkit of the oldest generation, see
// model/platform.h), so exactly 1000 bytes stay "1000.000 Bytes" and there
// is nothing above GB. Negative sizes always count in Bytes.
#pragma once

#include "presentation/number_formatter.h"

namespace trovara::presentation {

class ByteFormatter final : public NumberFormatter {
public:
    ByteFormatter();

    // A number, or a text that reads as a number in the pattern; a text
    // that does not has no text.
    QString stringForObjectValue(const QVariant& value) const override;
};

}  // namespace trovara::presentation
