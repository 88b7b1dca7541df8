#ifndef KES_TOOL_DOCTOR_CHAIN_H_
#define KES_TOOL_DOCTOR_CHAIN_H_

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "tool/doctor/finding.h"

namespace Kes::tool {

/// One part of the chain from the client program to the card.
struct ChainPart {
    std::string name;                  ///< such as "Engine"
    State state = State::skipped;      ///< the worst of its lines
    std::vector<const Finding*> lines; ///< they belong to the caller of read_chain()
};

struct Chain {
    std::array<ChainPart, 5> parts;
    std::optional<std::size_t> broken; ///< the first part with an error
};

Chain read_chain(const std::vector<Finding>& findings);

/// The chain as two pictures in SVG: one for wide windows, one for narrow ones. The style sheet hides one.
std::string chain_pictures(const Chain& chain);

} // namespace Kes::tool

#endif // KES_TOOL_DOCTOR_CHAIN_H_
