// The review of a configuration: goes through its statements, then through what they make together.
#include "qel/api/review.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "qel/api/nearest.hpp"
#include "qel/core/qel_debug.h"
#include "qel/spu/aec/keys.hpp"

namespace {

using qel::Key;
using qel::KeyKind;
using qel::KeySection;
using qel::Place;
using qel::Statement;

constexpr int kRoot = -1, kElsewhere = -2;  // beside the indices of kKeySections
constexpr int kMain = 0, kNlp = 1;          // of which the main section and its first one are
constexpr size_t kSections = std::size(qel::kKeySections);
constexpr size_t kMaxKeys = 24;        // of one section
constexpr int32_t kMaxFindings = 100;  // then a last one says that there are more
constexpr size_t kShownBytes = 60;     // of a name or a value
constexpr int32_t kFastFactor = 13;    // up to which prime factors of a frame stay fast

/// A known key: its row, its section, its slot among the section's keys and its record's offset.
struct Known {
    const Key* key;
    int section;
    size_t slot, record;
};

/// Calls fn(known) for every key of a section until it returns true.
template <class Fn>
bool any_key(int section, Fn fn) {
    size_t slot = 0;
    for (const KeySection::Part& part : qel::kKeySections[section].parts) {
        for (const Key& key : part.keys) {
            if (fn(Known{&key, section, slot++, part.record})) return true;
        }
    }
    return false;
}

/// The key of this name in a section; its row is null if there is none.
Known find_key(int section, std::string_view name) {
    Known found = {};
    any_key(section, [&](const Known& known) {
        if (name != known.key->name) return false;
        found = known;
        return true;
    });
    return found;
}

/// The index of the section that has this name, or kElsewhere.
int section_named(std::string_view name) {
    for (size_t i = 0; i < kSections; ++i) {
        if (name == qel::kKeySections[i].name) return static_cast<int>(i);
    }
    return kElsewhere;
}

/// Where a section stands: the main one in the root, all others in it.
int home_of(int section) { return section == kMain ? kRoot : kMain; }

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && qel::is_blank(text.front())) text.remove_prefix(1);
    while (!text.empty() && qel::is_blank(text.back())) text.remove_suffix(1);
    return text;
}

/// NUL-terminated text of a limited length, printable on one line.
class Shown {
  public:
    explicit Shown(std::string_view text) {
        const bool cut = text.size() > kShownBytes;
        size_t n = 0;
        for (const char c : qel::slice(text, 0, kShownBytes)) {
            bytes_[n++] = static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? ' ' : c;
        }
        if (cut) std::memcpy(bytes_.data() + n, "...", 3);
    }
    const char* text() const { return bytes_.data(); }

  private:
    std::array<char, kShownBytes + 4> bytes_{};
};

bool is_one_of(std::string_view word, std::initializer_list<const char*> words) {
    return std::any_of(words.begin(), words.end(), [word](const char* known) {
        return word.size() == std::strlen(known) &&
               strncasecmp(word.data(), known, word.size()) == 0;
    });
}

bool is_one_of(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

int32_t largest_prime_factor(int32_t n) {
    int32_t largest = 1;
    for (int32_t p = 2; n > 1; ++p) {
        for (; n % p == 0; n /= p) largest = p;
    }
    return largest;
}

class Review {
  public:
    Review(const qel::Journal& journal, const qel_aec_cfg& cfg, qel::Listener listener)
        : journal_(journal), cfg_(cfg), listener_(listener) {
        for (size_t i = 0; i < kSections; ++i) {
            items_[i] = qel_config_items_find_subitems(root(), qel::kKeySections[i].path);
        }
    }

    int32_t run(int32_t frame_len) {
        for (const Statement& statement : journal_.statements()) look_at(statement);
        look_at_ends();
        look_at_whole(frame_len);
        if (count_ > kMaxFindings || journal_.statements().size() == qel::Journal::kMaxStatements) {
            tell_text("more", {-1, 0}, "", "", "there are more findings: mend these first");
        }
        return count_;
    }

  private:
    qel_config_items* root() const { return cfg_.cfg_tree->root; }

    /// The section that statements of this scope belong to.
    int section_of(const qel_config_items* scope) const {
        if (scope == root()) return kRoot;
        const auto at = std::find(items_.begin(), items_.end(), scope);
        return at == items_.end() ? kElsewhere : static_cast<int>(at - items_.begin());
    }

    std::string_view text_of(int32_t file) const {
        return journal_.files()[static_cast<uint32_t>(file)].text;
    }

    /// The value as it is written, without the ';' behind it.
    std::string_view written(const Statement& s) const {
        if (s.type != QEL_CONFIG_STRING) return s.type == QEL_CONFIG_ARRAY ? "[" : "{";
        const auto text = qel::slice(text_of(s.place.file), s.value_at, s.end - s.value_at);
        return trimmed(qel::slice(text, 0, text.rfind(';')));
    }

    /// The name as it is written, without the '=' behind it.
    std::string_view written_name(const Statement& s) const {
        const auto text = qel::slice(text_of(s.place.file), s.place.at, s.value_at - s.place.at);
        return trimmed(qel::slice(text, 0, text.rfind('=')));
    }

    void tell_text(const char* code, Place place, const char* key, const char* value,
                   const char* text) {
        const char* file = place.file < 0 ? "" : nullptr;
        const qel::List<qel::JournalFile>& files = journal_.files();
        if (!file) file = files[static_cast<uint32_t>(place.file)].path.data();
        if (place.file < 0 && files.size() > 0) file = files[0].path.data();
        const qel_api_finding finding = {
            code, QEL_LOG_WARNING, file, journal_.line(place), journal_.column(place),
            key,  value,           text};
        listener_.fn(listener_.user, &finding);
    }

    /// Tells one finding about `name` in a section; a printf-style text.
    void tell(const char* code, Place place, int section, std::string_view name,
              std::string_view value, const char* format, ...) QEL_PRINTF(7, 8) {
        if (++count_ > kMaxFindings) return;
        char text[400], key[120];
        va_list args;
        va_start(args, format);
        vsnprintf(text, sizeof(text), format, args);
        va_end(args);
        snprintf(key, sizeof(key), "%s%s%s", section < 0 ? "" : qel::kKeySections[section].path,
                 section < 0 ? "" : " > ", Shown(name).text());
        tell_text(code, place, key, Shown(value).text(), text);
    }

    // One statement.

    void look_at(const Statement& s) {
        const int section = section_of(s.scope);
        if (is_foreign_comment(s, section) || section == kElsewhere) return;
        const int named = section_named(s.name);
        if (named != kElsewhere && home_of(named) == section) {
            if (s.type != QEL_CONFIG_SUBITEMS) {
                tell("kind", s.place, section, s.name, written(s),
                     "is a section, so this is not read: write %s = { ... }", Shown(s.name).text());
            }
            return;
        }
        const Known known = section >= 0 ? find_key(section, s.name) : Known{};
        if (known.key) {
            look_at_key(s, known);
        } else {
            look_at_unknown(s, section, named);
        }
    }

    /// Tells of text behind another language's sign for a comment; true if it became part of the
    /// statement, which then means nothing.
    bool is_foreign_comment(const Statement& s, int section) {
        const std::string_view name = written_name(s);
        if (name.empty() || name[0] == '"' || name[0] == '\'') return false;
        const bool spans_lines = name.find('\n') != std::string_view::npos;
        const bool sign = name.starts_with("//") || name.starts_with("--");
        const bool semicolon = follows_leading_semicolon(s);
        if (!spans_lines && !sign && !semicolon) return false;
        if (!spans_lines && !sign) {
            tell("comment", s.place, section, name, written(s),
                 "only '#' begins a comment, not ';': this statement counts");
            return false;
        }
        tell("comment", s.place, section, name, written(s),
             "only '#' begins a comment: this text became part of a name, and the statement says "
             "nothing");
        return true;
    }

    /// Whether the statement's line begins with ';'.
    bool follows_leading_semicolon(const Statement& s) const {
        const std::string_view text = text_of(s.place.file);
        uint32_t at = s.place.at;
        bool semicolon = false;
        for (; at > 0 && is_one_of(text[at - 1], " \t;"); --at) semicolon |= text[at - 1] == ';';
        return semicolon && (at == 0 || text[at - 1] == '\n');
    }

    void look_at_unknown(const Statement& s, int section, int named) {
        const Shown name(s.name);
        int home = named != kElsewhere ? home_of(named) : kElsewhere;
        for (size_t i = 0; home == kElsewhere && i < kSections; ++i) {
            if (find_key(static_cast<int>(i), s.name).key) home = static_cast<int>(i);
        }
        if (home != kElsewhere) {
            tell("misplaced", s.place, section, s.name, written(s),
                 "is not read here: it belongs %s%s",
                 home == kRoot ? "outside all sections" : "into ",
                 home == kRoot ? "" : qel::kKeySections[home].path);
            return;
        }
        if (journal_.uses_variable(s.name.data()) || s.name == "pwd") return;
        const char* kind = s.type == QEL_CONFIG_SUBITEMS ? "section" : "key";
        if (const char* nearest = nearest_to(s.name, section)) {
            tell("unknown", s.place, section, s.name, written(s),
                 "there is no such %s and it is not read; the nearest known one is %s", kind,
                 nearest);
        } else {
            tell("unknown", s.place, section, s.name, written(s),
                 "there is no such %s and it is not read", kind);
        }
    }

    /// The known name that may have been meant, of the same section first; null if none is near.
    static const char* nearest_to(std::string_view name, int section) {
        const char* nearest = nullptr;
        int least = 1000;
        const auto consider = [&](const char* known, bool here) {
            const int distance = qel::edit_distance(name, known);
            if (!qel::is_near(name, known, distance)) return;
            const int far = 2 * distance + (here ? 0 : 1);
            if (far >= least) return;
            least = far;
            nearest = known;
        };
        for (size_t i = 0; i < kSections; ++i) {
            const int index = static_cast<int>(i);
            consider(qel::kKeySections[i].name, home_of(index) == section);
            any_key(index, [&](const Known& known) {
                consider(known.key->name, index == section);
                return false;
            });
        }
        return nearest;
    }

    // A known key.

    void look_at_key(const Statement& s, const Known& known) {
        const Statement*& last = last_[static_cast<size_t>(known.section)][known.slot];
        if (s.type != QEL_CONFIG_STRING) {
            tell("kind", s.place, known.section, s.name, written(s),
                 "takes a plain value: this is not read, and the default stays");
        } else if (last && !overrides(s, *last)) {
            const Place place = last->place;
            tell("twice", s.place, known.section, s.name, written(s),
                 "was set before, at %s:%d; this one counts",
                 journal_.files()[static_cast<uint32_t>(place.file)].path.data(),
                 count_ < kMaxFindings ? journal_.line(place) : 0);
        } else {
            look_at_value(s, known);
        }
        last = &s;
    }

    /// Whether `later` replaces a value of a file that its own file includes, as is meant to be.
    bool overrides(const Statement& later, const Statement& earlier) const {
        if (later.place.file == earlier.place.file) return false;
        int32_t file = earlier.place.file;
        while (file >= 0 && file != later.place.file) {
            file = journal_.files()[static_cast<uint32_t>(file)].included_at.file;
        }
        return file >= 0;
    }

    void look_at_value(const Statement& s, const Known& known) {
        switch (known.key->kind) {
            case KeyKind::kFlag:
                if (is_one_of(s.value,
                              {"1", "t", "y", "yes", "true", "0", "f", "n", "no", "false"}))
                    return;
                tell("boolean", s.place, known.section, s.name, written(s),
                     "is no word for yes or no and is taken as no: write yes or no");
                return;
            case KeyKind::kType:
                if (is_one_of(s.value, {"float32", "fixed32", "fixed16"})) return;
                tell("type", s.place, known.section, s.name, written(s),
                     "is no element type and is taken as float32");
                return;
            case KeyKind::kInteger: look_at_integer(s, known); return;
            case KeyKind::kNumber: look_at_number(s, known); return;
        }
    }

    void look_at_integer(const Statement& s, const Known& known) {
        char* end = nullptr;
        errno = 0;
        const long long value = std::strtoll(s.value.data(), &end, 10);
        // As it is read: cut to 32 bits, then to its field.
        qel::Settings scratch = {};
        void* record = reinterpret_cast<char*>(&scratch) + known.record;
        known.key->set(record, static_cast<double>(static_cast<int32_t>(value)));
        const double taken = known.key->get(record);
        const std::string_view rest = trimmed(end);
        const bool digits = end != s.value.data();
        if (!digits) {
            tell_taken("number", s, known, taken, "is no number and is taken as %.0f");
        } else if (!rest.empty()) {
            const bool fraction =
                rest[0] == '.' && rest.find_first_not_of("0123456789", 1) == std::string_view::npos;
            tell_taken(fraction ? "fraction" : "trailing", s, known, taken,
                       fraction ? "only whole numbers count: it is taken as %.0f"
                                : "has text behind its number and is taken as %.0f");
        } else if (errno == ERANGE || static_cast<double>(value) != taken) {
            tell_taken("width", s, known, taken, "does not fit and is taken as %.0f");
        } else if (!in_range(*known.key, taken)) {
            tell_taken("range", s, known, taken, "");
        }
    }

    void look_at_number(const Statement& s, const Known& known) {
        char* end = nullptr;
        const double value = std::strtod(s.value.data(), &end);
        if (end == s.value.data()) {
            tell_taken("number", s, known, 0, "is no number and is taken as %g");
        } else if (!trimmed(end).empty()) {
            tell_taken("trailing", s, known, value,
                       "has text behind its number and is taken as %g");
        } else if (!in_range(*known.key, value)) {
            tell_taken("range", s, known, value, "");
        }
    }

    double least_of(const Key& key) const {
        return key.least == qel::kFrameSize ? cfg_.frame_size : key.least;
    }

    /// NaN is in no range.
    bool in_range(const Key& key, double value) const {
        return value >= least_of(key) && value <= key.most;
    }

    /// Tells what a value is taken as, by a format for that number, and whether it can work so.
    void tell_taken(const char* code, const Statement& s, const Known& known, double taken,
                    const char* format) {
        char text[200] = "";
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        snprintf(text, sizeof(text), format, taken);
#pragma GCC diagnostic pop
        if (in_range(*known.key, taken)) {
            tell(code, s.place, known.section, s.name, written(s), "%s", text);
            return;
        }
        const bool refused = known.key->outside == qel::Outside::kRefused;
        tell(code, s.place, known.section, s.name, written(s), "%s%s %.0f to %.0f", text,
             *text == '\0' ? (refused ? "cannot work: it must be" : "is outside its range of")
                           : (refused ? ", which cannot work: it must be"
                                      : ", which is outside its range of"),
             least_of(*known.key), known.key->most);
    }

    // The ends of the files, and the whole.

    void look_at_ends() {
        for (const qel::Unfinished& lost : journal_.unfinished()) {
            if (lost.place.file < 0) continue;
            std::string_view start = qel::slice(text_of(lost.place.file), lost.place.at);
            start = trimmed(qel::slice(start, 0, start.find('\n')));
            tell(lost.quoted ? "quote" : "unfinished", lost.place, kRoot, start, "",
                 lost.quoted
                     ? "the quote is never closed, so all from here on is lost"
                     : "the file ends within this statement, which is lost: ';' is missing");
        }
        for (const qel_config_items* open = cfg_.cfg_tree->scope; open && open != root();
             open = open->parent) {
            const Statement* opening = nullptr;
            for (const Statement& s : journal_.statements()) {
                if (s.opened == open) opening = &s;
            }
            if (!opening) continue;
            tell("unclosed", opening->place, section_of(opening->scope), opening->name, "{",
                 "the section is never closed: '}' is missing");
        }
    }

    /// Where a key was set last; nowhere if it has its default.
    Place place_of(int section, const char* name) const {
        const Statement* s = last_[static_cast<size_t>(section)][find_key(section, name).slot];
        return s ? s->place : Place{-1, 0};
    }

    void look_at_whole(int32_t frame_len) {
        if (!items_[kMain]) {
            tell("no-section", {-1, 0}, kRoot, "aec", "",
                 "there is no such section: every setting has its default");
        }
        if (cfg_.use_nlp) {
            agree("frame_size", cfg_.frame_size, cfg_.nlp.frame_size, "and the main one is used");
            agree("freqs", cfg_.freqs, cfg_.nlp.freqs,
                  "so the suppressor works for another rate: set both alike");
            if (place_of(kMain, "nb_banks").file >= 0) {
                agree("nb_banks", cfg_.nb_banks, cfg_.nlp.nb_banks, "and only that one counts");
            }
        }
        look_at_tracking();
        const int32_t factor = largest_prime_factor(cfg_.frame_size);
        if (factor > kFastFactor) {
            tell("slow", place_of(kMain, "frame_size"), kMain, "frame_size",
                 number(cfg_.frame_size),
                 "has the prime factor %d, which makes its transform slow: powers of two are "
                 "fastest, products of 2, 3 and 5 are fast",
                 factor);
        }
        if (frame_len > 0 && cfg_.frame_size > 0 && frame_len % cfg_.frame_size != 0) {
            tell("frame-len", place_of(kMain, "frame_size"), kMain, "frame_size",
                 number(cfg_.frame_size),
                 "\"frameLen\" %d is no whole multiple of it: every feed will fail", frame_len);
        }
    }

    /// Tells of a switch that is on without the one that it needs.
    void look_at_tracking() {
        qel_aec_tracking_cfg on = {};
        qel_aec_tracking_cfg_update_local(
            &on, qel_config_items_find_subitems(root(), qel::kKeySections[kMain].path));
        needs("use_residual", on.use_residual, "use_kalman", on.use_kalman);
        needs("use_residual", on.use_residual, "use_nlp", cfg_.use_nlp);
        needs("use_comfort", on.use_comfort, "use_residual", on.use_residual);
    }

    void needs(const char* name, bool on, const char* needed, bool there) {
        if (!on || there) return;
        tell("needs", place_of(kMain, name), kMain, name, "on", "has no effect without %s", needed);
    }

    /// Tells when section nlp has another value than the main one.
    void agree(const char* name, int32_t main, int32_t nlp, const char* meaning) {
        const Known known = find_key(kMain, name);
        if (main == nlp || !in_range(*known.key, main)) return;
        Place place = place_of(kNlp, name);
        if (place.file < 0) place = place_of(kMain, name);
        tell("disagree", place, kNlp, name, number(nlp), "differs from the main %s = %d, %s", name,
             main, meaning);
    }

    const char* number(int32_t value) {
        snprintf(number_, sizeof(number_), "%d", value);
        return number_;
    }

    const qel::Journal& journal_;
    const qel_aec_cfg& cfg_;
    const qel::Listener listener_;
    int32_t count_ = 0;
    char number_[16] = "";
    std::array<const qel_config_items*, kSections> items_{};
    std::array<std::array<const Statement*, kMaxKeys>, kSections> last_{};
};

}  // namespace

void qel::report_fault(const Journal& journal, Listener listener) {
    const auto path = [&](int32_t file) {
        return file < 0 ? "" : journal.files()[static_cast<uint32_t>(file)].path.data();
    };
    const Place place = journal.fault_place();
    char text[600];
    int n = snprintf(text, sizeof(text), "%s", journal.fault());
    for (int32_t file = place.file; file >= 0 && n < static_cast<int>(sizeof(text));) {
        const Place outer = journal.files()[static_cast<uint32_t>(file)].included_at;
        if (outer.file >= 0) {
            n += snprintf(text + n, sizeof(text) - static_cast<size_t>(n), " (included from %s:%d)",
                          path(outer.file), journal.line(outer));
        }
        file = outer.file;
    }
    const qel_api_finding finding = {
        "syntax", QEL_LOG_ERROR, path(place.file), journal.line(place), journal.column(place), "",
        "",       text};
    listener.fn(listener.user, &finding);
}

int32_t qel::review(const Journal& journal, const qel_aec_cfg& cfg, int32_t frame_len,
                    Listener listener) {
    return Review(journal, cfg, listener).run(frame_len);
}
