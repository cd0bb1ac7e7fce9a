#include "OemRequest.h"

#include <stdexcept>

namespace partmode::wire {

Bytes OemRequest::encode(std::initializer_list<std::uint8_t> parameters) const
{
    if (parameters.size() != parameterBytes) {
        throw std::invalid_argument("wrong parameter count for an OEM request");
    }
    Bytes request;
    request.reserve(requestLength());
    request.push_back(kOemHeader);
    request.insert(request.end(), parameters.begin(), parameters.end());
    return request;
}

bool OemRequest::decode(std::span<const std::uint8_t> request, Bytes& parameters) const
{
    if (request.size() != requestLength() || request[0] != kOemHeader) {
        return false;
    }
    parameters.assign(request.begin() + 1, request.end());
    return true;
}

} // namespace partmode::wire
