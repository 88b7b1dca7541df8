#ifndef KES_UTILS_HELPER_H_
#define KES_UTILS_HELPER_H_

#include <string>
#include <vector>

#include "utils/text_helper.h"

namespace Kes {

/// The text functions of TextHelper plus access to files and the environment. TextHelper explains why there
/// are two classes.
class Helper : public TextHelper {
public:
    Helper() = delete;

    /// Writes the bytes to the file and replaces its old content. For diagnostics: does not report a failed
    /// write, and only Cert::write_der_file() uses it.
    /// @throws Error open_failed "error opening file: '...'" if the file cannot be opened for writing
    static void write_file(const std::string& file_name, const std::vector<unsigned char>& bytes);

    /// The value of the environment variable; "" if it is not set.
    static std::string get_env(const std::string& name);
};

} // namespace Kes

#endif // KES_UTILS_HELPER_H_
