# The manual page is the program's own --help, so that it cannot drift, with what --help has no room for
# from cindral-replay.h2m.
find_program(HELP2MAN help2man)
if(HELP2MAN AND NOT CMAKE_CROSSCOMPILING AND NOT CINDRAL_SANITIZE)
    set(manual_page ${CMAKE_CURRENT_BINARY_DIR}/cindral-replay.1.gz)
    add_custom_command(OUTPUT ${manual_page}
        COMMAND ${HELP2MAN} --no-info --output=cindral-replay.1
            --include=${CMAKE_CURRENT_SOURCE_DIR}/cindral-replay.h2m
            $<TARGET_FILE:cindral-replay>
        COMMAND gzip -9nf cindral-replay.1
        DEPENDS cindral-replay cindral-replay.h2m
        VERBATIM)
    add_custom_target(manual_page ALL DEPENDS ${manual_page})
    install(FILES ${manual_page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endif()
