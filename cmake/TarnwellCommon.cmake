# Settings shared by every target of ours: standard, warnings, Qt hygiene.
add_library(tarnwell_common_cfg INTERFACE)
target_compile_features(tarnwell_common_cfg INTERFACE cxx_std_20)
target_compile_options(tarnwell_common_cfg INTERFACE -Wall -Wextra -pedantic)
target_compile_definitions(tarnwell_common_cfg INTERFACE
    QT_NO_CAST_FROM_ASCII
    QT_NO_CONTEXTLESS_CONNECT
    QT_NO_URL_CAST_FROM_STRING
    QT_NO_CAST_TO_ASCII
    QT_DISABLE_DEPRECATED_UP_TO=0x060400
    TARNWELL_VERSION="${PROJECT_VERSION}")

# Fuzz builds instrument our libraries too, so that libFuzzer sees coverage of the code under test.
if(TARNWELL_FUZZ)
    target_compile_options(tarnwell_common_cfg INTERFACE -fsanitize=fuzzer-no-link,address,undefined)
    target_link_options(tarnwell_common_cfg INTERFACE -fsanitize=address,undefined)
endif()

if(TARNWELL_SANITIZE)
    target_compile_options(tarnwell_common_cfg INTERFACE
        -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    target_link_options(tarnwell_common_cfg INTERFACE -fsanitize=address,undefined)
endif()

# One static library per subsystem folder.
function(tarnwell_library name)
    cmake_parse_arguments(ARG "" "" "SOURCES;PUBLIC_LIBS;PRIVATE_LIBS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${CMAKE_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC tarnwell_common_cfg ${ARG_PUBLIC_LIBS} PRIVATE ${ARG_PRIVATE_LIBS})
endfunction()
