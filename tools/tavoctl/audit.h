// Records of the changes tavoctl makes, in the operations log that the library's own
// audit records go to.
#pragma once

#include <string_view>

namespace tavoctl {

// Appends "[time][thread][user][address][tavoctl,COMMAND,0]:TEXT" to
// /var/log/quillmon_LOG_OP.log; a log that cannot be written is skipped.
void audit(std::string_view command, std::string_view text);

}  // namespace tavoctl
