# What each package consists of and needs, beside it as CycloneDX 1.5: PACKAGE.cdx.json.
cmake_minimum_required(VERSION 3.22)

# Licences by package, as Debian's copyright files tell them. One that is not here is not told.
set(licence_libc6 LGPL-2.1-or-later)
set(licence_libc6-dev LGPL-2.1-or-later)
set(licence_libgcc-s1 "GPL-3.0-or-later WITH GCC-exception-3.1")
set(licence_libstdc++6 "GPL-3.0-or-later WITH GCC-exception-3.1")
set(licence_libstdc++-12-dev "GPL-3.0-or-later WITH GCC-exception-3.1")
set(licence_libsodium23 ISC)
set(licence_mount GPL-2.0-or-later)

# Appends ` "KEY": "VALUE"` to the list of members in `to`.
function(add_member to key value)
  string(REPLACE "\\" "\\\\" value "${value}")
  string(REPLACE "\"" "\\\"" value "${value}")
  set(${to} ${${to}} "\"${key}\": \"${value}\"" PARENT_SCOPE)
endfunction()

# The members of a list, in braces.
function(make_object to)
  list(JOIN ARGN ", " text)
  set(${to} "{${text}}" PARENT_SCOPE)
endfunction()

# The first two members of a package.
function(begin_package name to)
  set(type application)
  if(name MATCHES "^lib")
    set(type library)
  endif()
  add_member(members type ${type})
  add_member(members bom-ref "${name}")
  set(${to} "${members}" PARENT_SCOPE)
endfunction()

function(sum_of file to)
  file(SHA256 "${file}" sum)
  set(${to} "\"hashes\": [{\"alg\": \"SHA-256\", \"content\": \"${sum}\"}]" PARENT_SCOPE)
endfunction()

# A package that this one needs: in the version that this machine has, which it was built with.
function(describe_needed needed architecture to)
  string(REGEX MATCH "^[^ |]+" name "${needed}")
  execute_process(COMMAND dpkg-query -W -f "\${Version}" "${name}:${architecture}"
    OUTPUT_VARIABLE version ERROR_QUIET)
  begin_package("${name}" members)
  add_member(members name "${name}")
  if(version)
    add_member(members version "${version}")
  endif()
  if(licence_${name})
    list(APPEND members "\"licenses\": [{\"expression\": \"${licence_${name}}\"}]")
  endif()
  list(APPEND members "\"properties\": [{\"name\": \"debian:depends\", \"value\": \"${needed}\"}]")
  make_object(object ${members})
  set(${to} "${object}" PARENT_SCOPE)
  set(name "${name}" PARENT_SCOPE)
endfunction()

function(describe_files tree to)
  file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${tree}" "${tree}/usr/*")
  foreach(file ${files})
    set(members "")
    add_member(members type file)
    add_member(members name "${file}")
    sum_of("${tree}/${file}" sum)
    make_object(object ${members} "${sum}")
    list(APPEND objects "${object}")
  endforeach()
  if(NOT objects)
    message(FATAL_ERROR "no files below ${tree}")
  endif()
  set(${to} "${objects}" PARENT_SCOPE)
endfunction()

# The package itself.
function(describe_package name version package to)
  begin_package("${name}" members)
  list(APPEND members "\"supplier\": {\"name\": \"Vorn Video Systems\"}")
  add_member(members name "${name}")
  add_member(members version "${version}")
  list(APPEND members
    "\"licenses\": [{\"license\": {\"name\": \"All rights reserved by the maker\"}}]")
  sum_of("${package}" sum)
  list(APPEND members "${sum}")
  foreach(property COMPILER SIGNATURES)
    string(TOLOWER "${property}" key)
    list(APPEND properties
      "{\"name\": \"img_deploy:${key}\", \"value\": \"${CPACK_SBOM_${property}}\"}")
  endforeach()
  list(JOIN properties ", " properties)
  make_object(object ${members} "\"properties\": [${properties}]")
  set(${to} "${object}" PARENT_SCOPE)
endfunction()

function(write_sbom package tree)
  foreach(field Package Version Architecture Depends)
    execute_process(COMMAND dpkg-deb -f "${package}" ${field}
      OUTPUT_VARIABLE ${field} OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  endforeach()
  describe_files("${tree}" components)
  string(REPLACE ", " ";" Depends "${Depends}")
  foreach(needed ${Depends})
    describe_needed("${needed}" "${Architecture}" component)
    list(APPEND components "${component}")
    list(APPEND names "\"${name}\"")
  endforeach()
  describe_package("${Package}" "${Version}" "${package}" whole)
  list(JOIN components ",\n    " components)
  list(JOIN names ", " names)
  string(TIMESTAMP now "%Y-%m-%dT%H:%M:%SZ" UTC)
  # CPack moves the packages there by itself.
  get_filename_component(file "${package}" NAME)
  string(REGEX REPLACE "\\.deb$" ".cdx.json" file "${file}")
  file(WRITE "${CPACK_PACKAGE_DIRECTORY}/${file}" "{
  \"bomFormat\": \"CycloneDX\",
  \"specVersion\": \"1.5\",
  \"version\": 1,
  \"metadata\": {
    \"timestamp\": \"${now}\",
    \"component\": ${whole}
  },
  \"components\": [
    ${components}
  ],
  \"dependencies\": [{\"ref\": \"${Package}\", \"dependsOn\": [${names}]}]
}
")
endfunction()

foreach(package ${CPACK_PACKAGE_FILES})
  get_filename_component(file "${package}" NAME)
  if(file MATCHES "^lib")
    write_sbom("${package}" "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/development")
  else()
    write_sbom("${package}" "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/device")
  endif()
endforeach()
