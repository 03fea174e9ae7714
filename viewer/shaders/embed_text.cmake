# Writes the text of INPUT into OUTPUT as a C++ raw string named SYMBOL.
file(READ ${INPUT} text)
string(FIND "${text}" ")zvrs_text\"" clash)
if(NOT clash EQUAL -1)
  message(FATAL_ERROR "${INPUT} contains the raw string's closing delimiter")
endif()
file(WRITE ${OUTPUT}.tmp
  "// Generated from ${INPUT}; edit that file instead.\n#pragma once\n\n"
  "inline constexpr const char ${SYMBOL}[] = R\"zvrs_text(${text})zvrs_text\";\n")
# Rewrite only on change so that dependants do not rebuild for nothing.
file(COPY_FILE ${OUTPUT}.tmp ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.tmp)
