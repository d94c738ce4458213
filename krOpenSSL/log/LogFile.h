// The log file: where it is, when it is rotated, and opening it for one line. Called under the log lock.
#pragma once

#include "platform/Platform.h"

/// The path of the log file, or an empty one as long as it cannot be had.
const char *krLogResolvePath();

/// Rotates the file that is to be opened if it has reached its limit. Before the path is resolved there is nothing to
/// look at.
void krLogCheckSize(krOpenSSL::platform::AppendFile &stream);

/// Moves the file to its ".old" name and starts a fresh one; 1 on success, else 0.
int krLogRotate();

/// Opens the file for a line: 0, or -1 when there is none to open, -2 when it is not safe.
int krLogOpenAppend(krOpenSSL::platform::AppendFile &stream);
