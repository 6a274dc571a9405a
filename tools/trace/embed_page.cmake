# SPDX-License-Identifier: MIT
# usage: cmake -D OUTPUT=FILE.cpp -P embed_page.cmake - joins report.html, report.css and report.js to
# one page and writes it as C++ source. The page's policy allows its own style and script, by their
# hashes, and nothing else.
cmake_minimum_required(VERSION 3.18)

# base64_sha256(VARIABLE TEXT): the hash as the policy has it.
function(base64_sha256 variable text)
  string(SHA256 hexadecimal "${text}")
  set(alphabet ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
  set(result "")
  # Three bytes are four characters. The last two bytes of the 32 are three, and one to fill up.
  string(REGEX MATCHALL "......" groups "${hexadecimal}00")
  foreach(group IN LISTS groups)
    foreach(shift IN ITEMS 18 12 6 0)
      math(EXPR index "(0x${group} >> ${shift}) & 63")
      string(SUBSTRING ${alphabet} ${index} 1 character)
      string(APPEND result ${character})
    endforeach()
  endforeach()
  string(REGEX REPLACE ".$" "=" result ${result})
  set(${variable} ${result} PARENT_SCOPE)
endfunction()

file(READ ${CMAKE_CURRENT_LIST_DIR}/report.html page)
file(READ ${CMAKE_CURRENT_LIST_DIR}/report.css style)
file(READ ${CMAKE_CURRENT_LIST_DIR}/report.js script)
base64_sha256(style_hash "${style}")
base64_sha256(script_hash "${script}")
string(REPLACE "@POLICY@" "default-src 'none'; style-src 'sha256-${style_hash}'; \
script-src 'sha256-${script_hash}'; base-uri 'none'; form-action 'none'" page "${page}")
string(REPLACE "@STYLE@" "${style}" page "${page}")
string(REPLACE "@SCRIPT@" "${script}" page "${page}")
string(REPLACE "@REPORT@" ")page\";\nextern const char page_after[];\nconst char page_after[] = R\"page("
  page "${page}")
file(WRITE ${OUTPUT} "// Made by embed_page.cmake.
namespace vektrace {
extern const char page_before[];
const char page_before[] = R\"page(${page})page\";
} // namespace vektrace
")
