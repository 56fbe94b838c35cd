# DNS-SD browsing and resolving go through the Avahi client library, which
# talks to the system's avahi-daemon over D-Bus.
pkg_check_modules(AVAHI REQUIRED IMPORTED_TARGET avahi-client)
target_link_libraries(${target} ${scope} PkgConfig::AVAHI)
