#ifndef KES_TOOL_DOCTOR_FINDING_H_
#define KES_TOOL_DOCTOR_FINDING_H_

#include <string>
#include <vector>

namespace Kes::tool {

/// Whether a text shows personal data: names, subjects, serial numbers and user names.
enum class Names { shown, left_out };

/// A text that knows which of its pieces are personal data.
class Text {
public:
    Text() = default;
    Text(std::string plain); // NOLINT(google-explicit-constructor): most texts are plain
    Text(const char* plain); // NOLINT(google-explicit-constructor)

    Text& add(const Text& other);
    Text& add_personal(std::string name);

    /// Marks every occurrence of a name in the plain pieces as personal. A name that is only a part of a
    /// longer word is not an occurrence.
    void mark(const std::vector<std::string>& names);

    /// The text. Names::left_out replaces each personal piece by "[name]".
    std::string str(Names names) const;
    bool empty() const { return pieces.empty(); }

private:
    struct Piece {
        std::string text;
        bool personal;
    };
    void add_marked(std::string text, const std::string& name);

    std::vector<Piece> pieces;
};

/// The result of a check.
enum class State {
    ok,
    note,    ///< no mistake, but worth knowing
    warning, ///< may fail, or fails in some uses
    error,   ///< the library cannot work like this
    skipped, ///< not checked; the finding gives the reason
};

/// The part of the chain, from the client program to the card, that a check is about.
enum class Link { client, library, engine, module, card };

const char* to_string(State state); ///< such as "error"
const char* to_string(Link link);   ///< such as "engine"

/// One line of the report.
struct Finding {
    State state;
    Link link;
    std::string check; ///< a short name of what was checked, such as "libp11 version"; several lines share it
    Text finding;      ///< what was found, in one line
    Text remedy;       ///< what to do; empty if there is nothing to do
};

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_FINDING_H_
