# The public headers, and the headers they and the examples include, directly or through each
# other. The install rules install exactly this set; the install check recomputes it over the
# installed tree (cmake -P cmake/CheckHeaderClosure.cmake) and fails on any extra or missing header.

# The library's public headers, relative to the project root (and to <prefix>/include).
set(MORVIK_PUBLIC_HEADERS
  MorvikLib/MemoryMapping.h
  MorvikLib/MorvikMemory.h
  MorvikLib/MorvikMemorySm.h
  MorvikLib/MorvikAuditSm.h)

# Sets `out` to the files that `ROOTS` include with quotes, directly or through each other, each
# found in the first of `INCLUDE_DIRS` that has it. An include found nowhere is an error.
function(morvik_header_closure out)
  cmake_parse_arguments(arg "" "" "ROOTS;INCLUDE_DIRS" ${ARGN})
  set(queue ${arg_ROOTS})
  set(found "")
  while(queue)
    list(POP_FRONT queue file)
    file(STRINGS ${file} lines REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
    foreach(line IN LISTS lines)
      string(REGEX REPLACE "^[ \t]*#[ \t]*include[ \t]*\"([^\"]+)\".*" "\\1" name "${line}")
      set(path "")
      foreach(dir IN LISTS arg_INCLUDE_DIRS)
        if(EXISTS ${dir}/${name})
          set(path ${dir}/${name})
          break()
        endif()
      endforeach()
      if(NOT path)
        message(FATAL_ERROR "${file} includes \"${name}\", found in none of ${arg_INCLUDE_DIRS}")
      endif()
      cmake_path(NORMAL_PATH path)
      if(NOT path IN_LIST found)
        list(APPEND found ${path})
        list(APPEND queue ${path})
      endif()
    endforeach()
  endwhile()
  set(${out} ${found} PARENT_SCOPE)
endfunction()
