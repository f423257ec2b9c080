# cmake -DSOURCE=folder -P CheckArrows.cmake: fails when a source of the library includes what its room must not see.
#
# Arrows run down. The one call that runs up, from the client's setup, which starts the update of the configuration, goes
# through a function that core declares and config defines, so that no include does.
cmake_minimum_required(VERSION 3.25)

set(values values)
set(platform platform ${values})
set(control control ${platform})
set(core core ${control})
set(network network ${core})
set(storage storage ${network})
set(picoproto picoproto ${network})
foreach(room events config deeplink)
    set(${room} ${room} ${picoproto} ${storage})
endforeach()
set(c c ${events} ${config} ${deeplink})

# Of the system and of other libraries only the adapters know.
set(foreign "[<\"](curl|openssl|nlohmann|plist|uriparser|sys|gio|glib|libsecret|fontconfig|linux|net|netinet|arpa)/"
    "[<\"](sqlite3|pthread|unistd|fcntl|syslog|dlfcn|signal|poll|netdb|locale|spawn|sched|elf|link)\\.h[>\"]"
    "\"QLSDKCoreKit/[a-z]+/(linux|desktop)/")

file(GLOB_RECURSE sources RELATIVE ${SOURCE}/QLSDKCoreKit ${SOURCE}/QLSDKCoreKit/*/*.h ${SOURCE}/QLSDKCoreKit/*/*.cpp)
list(FILTER sources EXCLUDE REGEX "_test\\.|/(testing|conformance)/")
foreach(source IN LISTS sources)
    string(REGEX MATCH "^[a-z]+" room ${source})
    if(NOT DEFINED ${room})
        message(SEND_ERROR "${source}: no room of that name")
    endif()
    file(STRINGS ${SOURCE}/QLSDKCoreKit/${source} includes REGEX "^ *# *include")
    foreach(include IN LISTS includes)
        if(include MATCHES "\"QLSDKCoreKit/([a-z]+)/" AND NOT CMAKE_MATCH_1 IN_LIST ${room})
            message(SEND_ERROR "${source} must not see ${CMAKE_MATCH_1}: ${include}")
        endif()
        foreach(pattern IN LISTS foreign)
            if(include MATCHES "${pattern}" AND NOT source MATCHES "^[a-z]+/(linux|desktop)/")
                message(SEND_ERROR "${source} is no adapter: ${include}")
            endif()
        endforeach()
    endforeach()
endforeach()
if(STAMP)
    file(TOUCH ${STAMP})
endif()
