// krholder: keeps private keys for programs that have references to them.
#include "Daemon.h"

int main(int argc, char **argv) { return krHolder::run(argc, argv); }
