# Runs before the files are copied: clears what an earlier install of the project left in
# the folders it owns, so that headers, CMake files and libraries it no longer ships cannot
# shadow the new ones. A stale QKUtilitiesTargets-<config>.cmake, say, would make every
# find_package(QKUtilities) fail on a library file that no longer exists.
# Inputs: QK_REPLACE_FOLDERS (owned folders, relative to the prefix), QK_REPLACE_LIBDIR,
# QK_REPLACE_LIBRARIES (library names), QK_REPLACE_VERSION, QK_REPLACE_SOVERSION.
set(root "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}")
foreach(folder IN LISTS QK_REPLACE_FOLDERS)
    if(IS_DIRECTORY "${root}/${folder}")
        message(STATUS "Replacing: ${root}/${folder}")
        file(REMOVE_RECURSE "${root}/${folder}")
    endif()
endforeach()
# Other builds of the same SONAME; other major versions stay for the programs that use them.
foreach(library IN LISTS QK_REPLACE_LIBRARIES)
    set(name "lib${library}.so.${QK_REPLACE_SOVERSION}")
    file(GLOB builds "${root}/${QK_REPLACE_LIBDIR}/${name}.*")
    list(REMOVE_ITEM builds "${root}/${QK_REPLACE_LIBDIR}/lib${library}.so.${QK_REPLACE_VERSION}")
    foreach(build IN LISTS builds)
        message(STATUS "Replacing: ${build}")
        file(REMOVE "${build}")
    endforeach()
endforeach()
