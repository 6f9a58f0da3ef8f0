#pragma once

#include "ipmiMessage.h"

#include <string>
#include <string_view>

namespace sim {

/// "0xC1"
std::string hexByte(unsigned char value);
/// "[57 01 00]", shortened when long; nothing for no bytes.
std::string hexText(Data bytes);
/// `value` with `places` digits behind the point.
std::string decimal(double value, int places);
/// `text` filled up with blanks to `width` columns.
std::string padded(std::string text, std::size_t width);
/// In double quotes, with unprintable characters as \xNN.
std::string quoted(Data characters);

/// An IPv4 address of 4 bytes or an IPv6 address of 16, others in hexadecimal.
std::string addressText(Data address);
inline constexpr std::size_t macLength = 6;
/// "02:00:00:00:00:01"
std::string macText(Data mac);

/// "EIO"; the number when it has no name.
std::string errnoName(int error);
/// Throws std::invalid_argument when nothing is called so.
int errnoNamed(std::string_view name);

/// Whole number, decimal or with 0x in front, between `least` and `most`; otherwise throws
/// std::invalid_argument saying what it should have been.
long parseNumber(std::string_view text, long least, long most);

} // namespace sim
