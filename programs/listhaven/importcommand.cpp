#include "programs/listhaven/importcommand.h"
void AddImportCommands(CLI::App&) {}
