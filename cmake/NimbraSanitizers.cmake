# Sanitizers of the whole build. Address and thread cannot go together, so each is a build of its
# own.
if(NIMBRA_SANITIZE STREQUAL "address")
    set(nimbra_sanitizer_flags -fsanitize=address,undefined -fno-sanitize-recover=undefined)
elseif(NIMBRA_SANITIZE STREQUAL "thread")
    set(nimbra_sanitizer_flags -fsanitize=thread)
    # It does not understand fences. Asio's are beside mutexes that already order what they order.
    add_compile_definitions(BOOST_ASIO_DISABLE_FENCED_BLOCK)
elseif(NOT NIMBRA_SANITIZE STREQUAL "")
    message(FATAL_ERROR "NIMBRA_SANITIZE is '${NIMBRA_SANITIZE}'; it takes address or thread")
endif()
if(nimbra_sanitizer_flags)
    add_compile_options(${nimbra_sanitizer_flags} -fno-omit-frame-pointer)
    add_link_options(${nimbra_sanitizer_flags})
endif()
