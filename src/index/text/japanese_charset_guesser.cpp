#include "index/text/japanese_charset_guesser.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

namespace trovara::index::text {

namespace {

struct Arc {
    int next = 0;
    double logFactor = 0;  // scores are kept as sums of logarithms: no overflow on long texts
};

// One automaton: transitions[state * 256 + byte] is an arc number, or -1.
struct Automaton {
    std::string_view name;
    int states = 0;
    std::vector<std::int8_t> transitions;
    std::vector<Arc> arcs;
};

class Builder {
public:
    Builder(std::string_view name, int states)
    {
        m_automaton.name = name;
        m_automaton.states = states;
        m_automaton.transitions.assign(static_cast<std::size_t>(states) * 256, -1);
    }

    // Bytes lo..hi in `state` lead to `next`, multiplying the score by `factor`.
    Builder& on(int state, int lo, int hi, int next, double factor = 1.0)
    {
        const std::int8_t arc = arcFor(next, factor);
        for (int byte = lo; byte <= hi; ++byte) {
            m_automaton.transitions[static_cast<std::size_t>(state) * 256 + static_cast<std::size_t>(byte)] = arc;
        }
        return *this;
    }

    Automaton build() { return std::move(m_automaton); }

private:
    std::int8_t arcFor(int next, double factor)
    {
        const double logFactor = std::log(factor);
        for (std::size_t i = 0; i < m_automaton.arcs.size(); ++i) {
            if (m_automaton.arcs[i].next == next && m_automaton.arcs[i].logFactor == logFactor) {
                return static_cast<std::int8_t>(i);
            }
        }
        m_automaton.arcs.push_back({next, logFactor});
        return static_cast<std::int8_t>(m_automaton.arcs.size() - 1);
    }

    Automaton m_automaton;
};

// EUC-JP: ASCII; SS2 (0x8E) + a half-width kana; SS3 (0x8F) + two bytes of
// JIS X 0212; or two bytes A1-FE. The lead byte says what the character is:
// A4 hiragana, A5 katakana, B0-CF the common kanji, D0-F4 the rarer ones.
Automaton eucJp()
{
    enum { Start, AfterSs2, AfterSs3, Trail };
    return Builder("EUC-JP", 4)
        .on(Start, 0x00, 0x7F, Start)
        .on(Start, 0x8E, 0x8E, AfterSs2)
        .on(Start, 0x8F, 0x8F, AfterSs3, 0.9)
        .on(Start, 0xA1, 0xA3, Trail, 1.1)   // symbols, full-width digits and letters
        .on(Start, 0xA4, 0xA5, Trail, 1.3)   // hiragana, katakana
        .on(Start, 0xA6, 0xA8, Trail, 1.0)   // Greek, Cyrillic, box drawing
        .on(Start, 0xA9, 0xAF, Trail, 0.8)   // unassigned rows
        .on(Start, 0xB0, 0xCF, Trail, 1.2)   // level 1 kanji
        .on(Start, 0xD0, 0xF4, Trail, 1.05)  // level 2 kanji
        .on(Start, 0xF5, 0xFE, Trail, 0.8)   // user-defined rows
        .on(AfterSs2, 0xA1, 0xDF, Start, 0.9)
        .on(AfterSs3, 0xA1, 0xFE, Trail)
        .on(Trail, 0xA1, 0xFE, Start)
        .build();
}

// Shift_JIS (as Windows writes it): ASCII; single-byte half-width kana
// A1-DF; or a lead byte 81-9F / E0-FC and a trail byte 40-7E / 80-FC. 82 is
// the hiragana lead, 83 katakana, 88-9F the common kanji.
Automaton shiftJis()
{
    enum { Start, Trail };
    return Builder("Shift_JIS", 2)
        .on(Start, 0x00, 0x7F, Start)
        .on(Start, 0xA1, 0xDF, Start, 0.9)  // half-width kana: rare in modern text
        .on(Start, 0x81, 0x81, Trail, 1.1)  // punctuation and symbols
        .on(Start, 0x82, 0x83, Trail, 1.3)  // hiragana, katakana
        .on(Start, 0x84, 0x84, Trail, 1.0)
        .on(Start, 0x85, 0x87, Trail, 0.9)
        .on(Start, 0x88, 0x9F, Trail, 1.2)  // level 1 kanji
        .on(Start, 0xE0, 0xEA, Trail, 1.05)  // level 2 kanji
        .on(Start, 0xEB, 0xEC, Trail, 0.8)
        .on(Start, 0xED, 0xEE, Trail, 0.9)   // vendor extensions
        .on(Start, 0xF0, 0xF9, Trail, 0.8)   // user-defined area
        .on(Start, 0xFA, 0xFC, Trail, 0.9)   // vendor extensions
        .on(Trail, 0x40, 0x7E, Start)
        .on(Trail, 0x80, 0xFC, Start)
        .build();
}

// UTF-8 as the standard defines it (no overlong forms, no surrogates, nothing
// past U+10FFFF). Every complete multi-byte sequence scores higher than any
// two-byte Japanese pair (see the header); the ranges of kana and kanji
// (E3-E9 leads) a little more.
Automaton utf8()
{
    enum { Start, Need1, Need2, AfterE0, AfterEd, Need3, AfterF0, AfterF4 };
    return Builder("UTF-8", 8)
        .on(Start, 0x00, 0x7F, Start)
        .on(Start, 0xC2, 0xDF, Need1, 1.5)
        .on(Start, 0xE0, 0xE0, AfterE0, 1.5)
        .on(Start, 0xE1, 0xE2, Need2, 1.5)
        .on(Start, 0xE3, 0xE9, Need2, 1.6)
        .on(Start, 0xEA, 0xEC, Need2, 1.5)
        .on(Start, 0xED, 0xED, AfterEd, 1.5)
        .on(Start, 0xEE, 0xEF, Need2, 1.5)
        .on(Start, 0xF0, 0xF0, AfterF0, 1.5)
        .on(Start, 0xF1, 0xF3, Need3, 1.5)
        .on(Start, 0xF4, 0xF4, AfterF4, 1.5)
        .on(Need1, 0x80, 0xBF, Start)
        .on(Need2, 0x80, 0xBF, Need1)
        .on(AfterE0, 0xA0, 0xBF, Need1)
        .on(AfterEd, 0x80, 0x9F, Need1)
        .on(Need3, 0x80, 0xBF, Need2)
        .on(AfterF0, 0x90, 0xBF, Need2)
        .on(AfterF4, 0x80, 0x8F, Need2)
        .build();
}

struct Automata {
    // In feeding order.
    std::array<Automaton, 3> all{eucJp(), shiftJis(), utf8()};
};

const Automata& automata()
{
    static const Automata instance;
    return instance;
}

struct Runner {
    const Automaton* automaton = nullptr;
    int state = 0;
    double score = 0;  // log of the product of the factors

    bool alive() const { return state >= 0; }
    void feed(unsigned char byte)
    {
        const std::int8_t arc = automaton->transitions[static_cast<std::size_t>(state) * 256 + byte];
        if (arc < 0) {
            state = -1;
            return;
        }
        const Arc& a = automaton->arcs[static_cast<std::size_t>(arc)];
        state = a.next;
        score += a.logFactor;
    }
};

constexpr unsigned char kEscape = 0x1B;

}  // namespace

std::optional<std::string_view> JapaneseCharsetGuesser::guess(std::string_view bytes)
{
    const Automata& tables = automata();
    std::array<Runner, 3> runners;
    for (std::size_t i = 0; i < runners.size(); ++i) {
        runners[i].automaton = &tables.all[i];
    }
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        auto byte = static_cast<unsigned char>(bytes[i]);
        if (byte == kEscape && i + 1 < bytes.size()) {
            const char next = bytes[i + 1];
            if (next == '$' || next == '(') {
                return "ISO-2022-JP";
            }
            byte = static_cast<unsigned char>(bytes[++i]);  // the escape itself is never fed
        }
        // Counted once every live automaton has seen the byte: a byte that
        // ends the last two leaves no answer, which is how a text that is
        // none of the three is told apart.
        std::size_t live = 0;
        for (Runner& runner : runners) {
            if (runner.alive()) {
                runner.feed(byte);
                live += runner.alive() ? 1 : 0;
            }
        }
        if (live == 1) {
            for (const Runner& survivor : runners) {
                if (survivor.alive()) {
                    return survivor.automaton->name;
                }
            }
        }
        if (live == 0) {
            return std::nullopt;
        }
    }
    // EUC-JP, then UTF-8, then Shift_JIS: a later one must score strictly more.
    const Runner* best = nullptr;
    for (const std::size_t i : {std::size_t{0}, std::size_t{2}, std::size_t{1}}) {
        const Runner& runner = runners[i];
        if (runner.alive() && (!best || runner.score > best->score)) {
            best = &runner;
        }
    }
    if (!best) {
        return std::nullopt;
    }
    return best->automaton->name;
}

}  // namespace trovara::index::text
