#ifndef KES_TOOL_COMMANDS_H_
#define KES_TOOL_COMMANDS_H_

#include "tool/command.h"

namespace Kes::tool {

/// Each function adds one command to the program, and sets the action of the object, which must exist until
/// the program ends.
void create_cert_command(CLI::App& program, Command& command);
void create_doctor_command(CLI::App& program, Command& command);
void create_env_command(CLI::App& program, Command& command);
void create_list_command(CLI::App& program, Command& command);
void create_login_command(CLI::App& program, Command& command);
void create_sign_command(CLI::App& program, Command& command);
void create_version_command(CLI::App& program, Command& command);

} // namespace Kes::tool

#endif // KES_TOOL_COMMANDS_H_
