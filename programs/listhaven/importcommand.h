// importcommand.h - the commands that move members in and out of files.

#ifndef LISTHAVEN_PROGRAMS_LISTHAVEN_IMPORTCOMMAND_H
#define LISTHAVEN_PROGRAMS_LISTHAVEN_IMPORTCOMMAND_H

namespace CLI {
class App;
}

void AddImportCommands(CLI::App& member);  // below "member"

#endif  // LISTHAVEN_PROGRAMS_LISTHAVEN_IMPORTCOMMAND_H
