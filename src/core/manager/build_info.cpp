#include "manager/build_info.h"

#include "utils/logger.h"

// The build defines MARVO_VERSION, MARVO_TOOLCHAIN and MARVO_STANDARD, for this file only.
namespace Kes {

const char* library_version() noexcept { return MARVO_VERSION; }

void log_build_banner(const std::string& name, const std::string& version) {
    constexpr auto pointer_bits = sizeof(void*) * 8;
    const std::string title = name.empty() || version.empty() ? name : name + " " + version;
    log_info(title, "\nCompiled at ", __DATE__, ", ", __TIME__, " (", pointer_bits, "-Bit, ", MARVO_TOOLCHAIN,
             ", ", MARVO_STANDARD, ")\nCopyright (c) 2026 the maintainers of libmarvo");
}

} // namespace Kes
