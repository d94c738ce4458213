// Known answers from files: blocks of "Name = hex" lines with blank lines between them. And expected texts, line by
// line.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace krTest {

using Bytes = std::vector<unsigned char>;
using Record = std::map<std::string, Bytes>;

/// The records of a file in tests/vectors, in its order.
std::vector<Record> readVectors(const std::string &file);

/// The text of such a file without its comments, with '|' between its lines.
std::string readText(const std::string &file);

} // namespace krTest
