// References as PEM files.
#pragma once

#include "reference/Reference.h"

#include <string>

namespace krHolder {

/// The first reference in a file, whatever else stands there.
/// @throws BadReference with the file's name
Reference readReferenceFile(const std::string &file);

/// Writes a file that must not be there yet; everybody may read it.
/// @throws std::runtime_error with the file's name
void writeReferenceFile(const std::string &file, const Reference &reference);

} // namespace krHolder
