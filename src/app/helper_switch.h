// Starting and stopping the companion helper application (trovara-helper:
// the global hot keys and the global menu item), and keeping it among the
// login items, according to "enableGlobalHotKeys" and
// "enableGlobalMenuItem".
//
// The application delegate calls setUpHelper() at launch (quitIfUnused
// false) and the preferences window after either switch changed (true).
// The helper's own implementation plugs in here; until then the switch
// does nothing.
#pragma once

namespace trovara::app {

class HelperSwitch {
public:
    virtual ~HelperSwitch() = default;
    // Launches the helper when a switch is on and it does not run; when
    // both are off, asks a running helper to quit (only with
    // `quitIfUnused`) and removes it from the login items.
    virtual void setUpHelper(bool quitIfUnused) = 0;
};

// A helper switch for when there is no helper: does nothing.
class NoHelperSwitch final : public HelperSwitch {
public:
    void setUpHelper(bool) override {}
};

}  // namespace trovara::app
