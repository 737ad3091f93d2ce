# nimbra_precompiled(<target> LINKS <libraries> HEADERS <headers>): a target whose headers others
# have precompiled with nimbra_use_precompiled(<target> <precompiled>). Parsing the standard library
# takes a third of what compiling a source does. Headers of our own are not among them: a change of
# one is to rebuild only who includes it.
function(nimbra_precompiled target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LINKS;HEADERS")
    file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/${target}.cpp CONTENT "// Has no content of its own.\n")
    add_library(${target} OBJECT ${PROJECT_BINARY_DIR}/${target}.cpp)
    target_link_libraries(${target} PRIVATE ${arg_LINKS} Threads::Threads)
    nimbra_common_flags(${target})
    target_precompile_headers(${target} PRIVATE ${arg_HEADERS})
endfunction()

function(nimbra_use_precompiled target precompiled)
    target_precompile_headers(${target} REUSE_FROM ${precompiled})
endfunction()

# What has to be the same for all who share precompiled headers.
function(nimbra_common_flags target)
    target_compile_features(${target} PUBLIC cxx_std_17)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE
        # Nobody replaces single functions of our libraries from outside, so they may be inlined.
        -fno-semantic-interposition
        # For ccache, which then knows what was precompiled.
        $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>
        # Where several sources are compiled as one, g++ takes their own types for those of headers.
        $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
    nimbra_warnings(${target})
endfunction()

# nimbra_folder(<target> FOLDER <path> SOURCES <files> [PUBLIC_HEADERS <files>]
#               [USES <folder targets>] [LINKS <libraries>])
#
# One target per source folder. A header is included by its path from the repository's root
# ("platform/vo/Clock.h"), and a folder's headers can be seen only by targets that name it in USES:
# each target exports an include root of its own, which holds nothing but a link to its folder. So
# an include that the layering does not allow fails to build.
#
# Public headers, and what they include themselves, are those that are installed.
function(nimbra_folder target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "FOLDER" "SOURCES;PUBLIC_HEADERS;USES;LINKS")
    set(root ${PROJECT_BINARY_DIR}/include-roots/${target})
    get_filename_component(parent ${root}/${arg_FOLDER} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${arg_FOLDER} ${root}/${arg_FOLDER} SYMBOLIC)

    add_library(${target} OBJECT ${arg_SOURCES})
    nimbra_common_flags(${target})
    nimbra_use_precompiled(${target} nimbra_precompiled_folder)
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${root}>)
    target_link_libraries(${target} PUBLIC ${arg_USES} ${arg_LINKS} Threads::Threads)
    if(arg_PUBLIC_HEADERS)
        install(FILES ${arg_PUBLIC_HEADERS}
            DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME}/${arg_FOLDER})
    endif()
endfunction()

# nimbra_library(<target> FOLDERS <folder targets> [USES <our libraries>])
#
# An installable shared library made of folders. Inside this build, who links it sees the headers of
# its folders and of what those use. Users outside see the installed include folder, and none of
# the libraries that only our sources need: public headers include Boost and the standard library.
function(nimbra_library target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "FOLDERS;USES")
    add_library(${target} SHARED)
    add_library(nimbra::${target} ALIAS ${target})
    set_target_properties(${target} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}
        LINKER_LANGUAGE CXX
        INSTALL_RPATH "$ORIGIN")
    target_compile_features(${target} INTERFACE cxx_std_17)
    target_include_directories(${target} INTERFACE
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME}>)
    target_link_libraries(${target}
        PUBLIC ${arg_USES} Boost::headers Threads::Threads
        PRIVATE ${arg_FOLDERS})
    foreach(folder IN LISTS arg_FOLDERS)
        target_link_libraries(${target} INTERFACE $<BUILD_INTERFACE:${folder}>)
    endforeach()
    # A library that calls into a layer above it fails to link. Sanitizers leave their own symbols
    # to the program.
    if(NOT NIMBRA_SANITIZE)
        target_link_options(${target} PRIVATE LINKER:--no-undefined)
    endif()
endfunction()

# Warnings belong to our targets only; they are errors in our presets and never a user's business.
function(nimbra_warnings target)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
        $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
endfunction()

# Tests wait for the compiler more than for themselves. What fails names its line without the
# debugger's help; what a sanitizer finds does not.
function(nimbra_test_flags target)
    target_compile_options(${target} PRIVATE -fPIC -O0 $<$<NOT:$<BOOL:${NIMBRA_SANITIZE}>>:-g0>)
endfunction()

# nimbra_test(<name> SOURCES <files> LINKS <targets>): a GoogleTest program, each test known to
# CTest by itself.
function(nimbra_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINKS")
    # It replaces the allocation of everything else in its program.
    set_source_files_properties(${PROJECT_SOURCE_DIR}/tests/support/Allocations.cpp
        PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
    add_executable(${name} ${arg_SOURCES})
    nimbra_common_flags(${name})
    nimbra_test_flags(${name})
    nimbra_use_precompiled(${name} nimbra_precompiled_test)
    target_include_directories(${name} PRIVATE ${PROJECT_BINARY_DIR}/include-roots/tests)
    target_link_libraries(${name} PRIVATE ${arg_LINKS} GTest::gmock GTest::gtest_main)
    # g++ 12 takes whole variants and functions for uninitialised when the address sanitizer is on.
    if(NIMBRA_SANITIZE STREQUAL "address")
        target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST NO_PRETTY_VALUES PROPERTIES TIMEOUT 300)
endfunction()
