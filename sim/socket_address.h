#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include "sim/endpoint.h"

namespace hxr::sim {

inline sockaddr_in socketAddress(const Endpoint& endpoint) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(endpoint.address);
    address.sin_port = htons(endpoint.port);
    return address;
}

inline Endpoint endpointOf(const sockaddr_in& address) {
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

}  // namespace hxr::sim
