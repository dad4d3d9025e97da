#pragma once

#include <cstdint>
#include <string>

#include "Fd.h"

// Non-blocking sockets that wait for clients; they throw std::system_error.

/** On a Unix-domain socket, which must not exist yet and which the caller removes. */
Fd listenUnix(const std::string& path);
/** On a TCP port of this machine alone; 0 lets the kernel choose one. */
Fd listenTcp(uint16_t port);

/** The port of a TCP socket. */
uint16_t portOf(const Fd& socket);
