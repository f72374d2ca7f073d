// Filling Trovara's printf-style texts ("%i of %i shown", "%@ KB") after
// they were looked up by their English wording.
#pragma once

#include <QString>
#include <QVariantList>

namespace trovara::presentation {

// Each %@, %d or %i takes the next argument: %@ its text (a string as it
// is, anything else in its own textual form), %d and %i its integer value.
// "%%" is a percent sign; a placeholder without an argument is left as it
// stands.
QString stringWithFormat(const QString& format, const QVariantList& arguments);

}  // namespace trovara::presentation
