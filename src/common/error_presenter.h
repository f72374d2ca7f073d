// How errors reach a person. Every error is logged before it is shown; what
// "shown" means depends on the program: the CLI prints it, the application
// raises an alert. The core never needs a window.
#pragma once

#include "common/error.h"

#include <functional>

namespace trovara {

using ErrorPresenter = std::function<void(const Error&)>;

// Logs the error ("willPresentError: …" and its parts) and hands it to the
// installed presenter. Without one, the error is written to standard error.
void presentError(const Error& error);

// Installs the presenter; an empty one restores the default. Returns the
// previous presenter so that a caller can put it back.
ErrorPresenter setErrorPresenter(ErrorPresenter presenter);

}  // namespace trovara
