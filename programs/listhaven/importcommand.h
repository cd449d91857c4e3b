// importcommand.h - the commands that move members in and out of files.

#ifndef LISTHAVEN_PROGRAMS_LISTHAVEN_IMPORTCOMMAND_H
#define LISTHAVEN_PROGRAMS_LISTHAVEN_IMPORTCOMMAND_H

class CCommand;

void AddImportCommands(CCommand member);  // below "member"

#endif  // LISTHAVEN_PROGRAMS_LISTHAVEN_IMPORTCOMMAND_H
