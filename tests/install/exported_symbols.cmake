# Checks what the shared library and the plug-in export (cmake -P, with NM,
# LIBRARY, PLUGIN and HEADERS set). The library exports every function its
# public headers declare with SDF_API or ZU_API and, besides, only the Fortran
# link name (lower case, trailing underscore) of each by-reference form:
# nothing of its insides or of the C++ runtime. The plug-in exports
# portalFactory alone.
cmake_minimum_required(VERSION 3.25)

function(exported_names file out)
  execute_process(COMMAND ${NM} -D --defined-only ${file}
                  OUTPUT_VARIABLE text ERROR_VARIABLE err RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${file}: ${err}")
  endif()
  string(REGEX MATCHALL "[^\n]+" lines "${text}")
  set(names "")
  foreach(line IN LISTS lines)
    # "0000000000012345 T Sdf_Open@@ZELTRASDF_0"; type A is the version node.
    if(line MATCHES "^[0-9a-fA-F]* ([A-Za-z]) ([^@ ]+)" AND NOT CMAKE_MATCH_1 STREQUAL "A")
      list(APPEND names ${CMAKE_MATCH_2})
    endif()
  endforeach()
  set(${out} ${names} PARENT_SCOPE)
endfunction()

function(declared_names out)
  set(names "")
  foreach(header IN LISTS HEADERS)
    file(READ ${header} text)
    string(REGEX MATCHALL "(SDF_API|ZU_API)[^;(]*[ *][A-Za-z_][A-Za-z0-9_]*\\(" decls "${text}")
    foreach(decl IN LISTS decls)
      string(REGEX MATCH "([A-Za-z_][A-Za-z0-9_]*)\\($" _ "${decl}")
      set(name "${CMAKE_MATCH_1}")
      if(NOT name MATCHES "^__")  # the macro's own definition
        list(APPEND names ${name})
      endif()
    endforeach()
  endforeach()
  set(${out} ${names} PARENT_SCOPE)
endfunction()

declared_names(declared)
list(LENGTH declared count)
if(count LESS 100)
  message(FATAL_ERROR "only ${count} declarations found in ${HEADERS}: the header scan is broken")
endif()
set(expected ${declared})
foreach(name IN LISTS declared)
  if(name MATCHES "_ref$")
    string(TOLOWER "${name}_" alias)
    list(APPEND expected ${alias})
  endif()
endforeach()

exported_names(${LIBRARY} exported)
set(problems "")
foreach(name IN LISTS expected)
  if(NOT name IN_LIST exported)
    string(APPEND problems "  declared but not exported: ${name}\n")
  endif()
endforeach()
foreach(name IN LISTS exported)
  if(NOT name IN_LIST expected)
    string(APPEND problems "  exported but not public: ${name}\n")
  endif()
endforeach()

exported_names(${PLUGIN} plugin)
if(NOT plugin STREQUAL "portalFactory")
  string(APPEND problems "  the plug-in exports ${plugin}, not portalFactory alone\n")
endif()

if(problems)
  message(FATAL_ERROR "exported names differ from the public interface:\n${problems}"
                      "(a new family of public names goes into cmake/zeltra-sdf.map)")
endif()
list(LENGTH exported n)
message(STATUS "${n} names exported, all public; the plug-in exports portalFactory alone")
