#ifndef KES_TOOL_EXIT_STATUS_H_
#define KES_TOOL_EXIT_STATUS_H_

namespace Kes::tool {

/// The exit statuses of the program. They are documented, and scripts depend on them.
enum class ExitStatus : int {
    success = 0,
    failure = 1,
    usage = 2,        ///< wrong command line
    errors_found = 3, ///< only the command doctor: the checks ran, and at least one found an error
};

} // namespace Kes::tool

#endif // KES_TOOL_EXIT_STATUS_H_
