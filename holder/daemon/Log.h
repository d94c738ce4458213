// The holder's log: a line of name=value pairs on standard error for each event, never a byte of what is signed.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace krHolder {

/// Writes one line, whole, whatever other threads write. A value with anything but letters, digits and plain signs
/// stands in quotes, with what would end them or the line escaped; an
/// empty reason is left out.
void log(std::string_view event, std::initializer_list<std::pair<std::string_view, std::string>> values);

} // namespace krHolder
