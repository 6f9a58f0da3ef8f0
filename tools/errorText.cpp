#include "errorText.h"

#include <string_view>

namespace tavStatus {

std::string errorText(const TavError& error) {
    constexpr std::string_view prefix = "Error: ";
    std::string_view text = error.what();
    if (text.starts_with(prefix)) {
        text.remove_prefix(prefix.size());
    }
    const std::size_t place = text.rfind("(" + error.fi + ",");
    return std::string(text.substr(0, place));
}

} // namespace tavStatus
