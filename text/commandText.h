#pragma once

#include "text.h"

namespace sim {

/// How one command reads. `asked` gets the whole request data, `told` the request data and the
/// response data behind the completion code of a success.
struct CommandText {
    unsigned char netfn;
    unsigned char cmd;
    const char* name;
    std::string (*asked)(Data request);
    std::string (*told)(Data request, Data response);
};

inline std::string toldInHex(Data, Data response) {
    return hexText(response);
}

} // namespace sim
