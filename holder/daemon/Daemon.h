// The holder as a program. A holder with a back end of one's own is this with one more row.
#pragma once

#include "BackEnd.h"

namespace krHolder {

/// krholder's main, command line and all.
/// @param own  back ends besides those of krholder; a word that is one of krholder's own is not reached
int run(int argc, char **argv, BackEnds own = {});

} // namespace krHolder
