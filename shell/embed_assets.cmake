# Turns the window assets into string constants compiled into the program.
file(READ ${DIR}/shell.js JS)
file(READ ${DIR}/shell.css CSS)
file(READ ${DIR}/channel.js CHANNEL)
file(WRITE ${OUT} "#pragma once\n#include <string_view>\nnamespace arven::shell {\n")
file(APPEND ${OUT} "inline constexpr std::string_view kShellJs = R\"ARVENASSET(${JS})ARVENASSET\";\n")
file(APPEND ${OUT} "inline constexpr std::string_view kShellCss = R\"ARVENASSET(${CSS})ARVENASSET\";\n")
file(APPEND ${OUT} "inline constexpr std::string_view kChannelJs = R\"ARVENASSET(${CHANNEL})ARVENASSET\";\n")
file(APPEND ${OUT} "}  // namespace arven::shell\n")
