// The five accent colours ("accentColorNumber" 0 to 4) that selected editor
// lines and result views use: each a light-to-darker gradient and a plain
// colour that matches it. Colours are "#rrggbb" texts, so that the core
// needs no GUI library; the widgets turn them into QColor.
#pragma once

#include <QString>

#include <array>

namespace trovara::app {

struct AccentColor {
    const char* name;   // what the preferences show (translated in context "Preferences")
    const char* light;  // top of the gradient
    const char* dark;   // bottom of the gradient
    const char* plain;  // a flat fill that matches the gradient
};

inline constexpr std::array<AccentColor, 5> kAccentColors = {{
    {"Blue", "#6fa8f0", "#2f6fce", "#3d7fd9"},
    {"Graphite", "#a3adb8", "#65707c", "#7a8591"},
    {"Green", "#7fcf7a", "#3e9a3a", "#4fae4a"},
    {"Orange", "#f6b160", "#d9741c", "#e8892f"},
    {"Purple", "#b79cf0", "#7648c9", "#8a5dd8"},
}};

// The accent colour of the stored number; out-of-range numbers give the
// first (a settings file edited by hand must not crash a window).
inline const AccentColor& accentColor(int number)
{
    return kAccentColors[number >= 0 && number < int(kAccentColors.size()) ? number : 0];
}

}  // namespace trovara::app
