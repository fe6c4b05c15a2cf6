# Makes one C++ source of a page: its parts, the charts' library, and nothing that has to be fetched.
# cmake -DPAGE=report|fleet -DPAGE_DIR=... -DCHART_LIBRARY=... -DCHART_STYLE=... -DOUTPUT=... -P EmbedPage.cmake

# In the order in which they use each other.
set(report_modules data text view thinning style ticks panels panel lanes overview gestures log tables legend app)
set(fleet_modules text style fleet)
set(report_html page)
set(fleet_html fleet)
set(report_symbol kReportPage)
set(fleet_symbol kFleetPage)

# The references to source maps would make a browser's tools look for files.
function(read_without_map file result)
    file(READ ${file} content)
    string(REGEX REPLACE "\n?(//|/[*])# sourceMappingURL=[^\n]*" "" content "${content}")
    set(${result} "${content}" PARENT_SCOPE)
endfunction()

# As browsers want the digest of a script; CMake only knows hexadecimal ones.
function(base64_of_hex hex result)
    set(alphabet ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
    set(text "")
    string(LENGTH ${hex} length)
    math(EXPR last "${length} - 1")
    foreach(at RANGE 0 ${last} 6)
        string(SUBSTRING "${hex}" ${at} 6 digits)
        string(LENGTH ${digits} count)
        string(SUBSTRING "${digits}00000" 0 6 padded)
        foreach(shift 18 12 6 0)
            math(EXPR index "(0x${padded} >> ${shift}) & 63")
            string(SUBSTRING ${alphabet} ${index} 1 letter)
            string(APPEND text ${letter})
        endforeach()
        if(count EQUAL 4)
            string(REGEX REPLACE ".$" "=" text ${text})
        elseif(count EQUAL 2)
            string(REGEX REPLACE "..$" "==" text ${text})
        endif()
    endforeach()
    set(${result} ${text} PARENT_SCOPE)
endfunction()

read_without_map(${CHART_LIBRARY} script)
string(APPEND script "\n(function() {\n'use strict';\n")
foreach(module ${${PAGE}_modules})
    file(READ ${PAGE_DIR}/${module}.js content)
    string(APPEND script "\n${content}")
endforeach()
string(APPEND script "})();\n")
if(script MATCHES "</script|<!--")
    message(FATAL_ERROR "A script would end the element it stands in")
endif()

string(SHA256 digest "${script}")
base64_of_hex(${digest} digest)

read_without_map(${CHART_STYLE} chart_style)
file(READ ${PAGE_DIR}/page.css style)
file(READ ${PAGE_DIR}/chart-licence.txt licence)
file(READ ${PAGE_DIR}/${${PAGE}_html}.html page)
string(REPLACE "@STYLE@" "${chart_style}\n${style}" page "${page}")
string(REPLACE "@CHART_LICENCE@" "${licence}" page "${page}")
string(REPLACE "@SCRIPT_HASH@" "sha256-${digest}" page "${page}")
string(REPLACE "@SCRIPT@" "${script}" page "${page}")

file(WRITE ${OUTPUT} "// Generated.
#include \"replay/report/ReportPage.h\"

namespace replay {

const char ${${PAGE}_symbol}[] = R\"page~(${page})page~\";

}  // namespace replay
")
