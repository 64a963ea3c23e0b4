// Finishing touches to a minidump that the system's writer has just written, so that every
// reader gets what Windows' own writer gives. Wine's writer leaves out the modules' CodeView
// records, without which no reader can match a module to its symbols; it leaves out the modules'
// data sections when asked for them; and it puts the unwind data of every function of every
// module into a normal dump as a memory range of its own: thousands of them, where readers refuse
// more than 4096. Windows' writer does none of that, and there this changes nothing that a
// reader sees.
#pragma once

#include <windows.h>

namespace deskaid {

// Fills each empty CodeView record from the module as loaded in this process; with
// `withDataSections`, adds the modules' writable sections to the memory list where it lacks them;
// and when the list has more ranges than readers accept, joins ranges less than a page apart (the
// bytes between them read from this process). The writer's own bytes win over the process's
// present ones. What is added goes to the end of the file, which is open for reading and writing.
// False when the file is not a minidump or could not be changed; a dump left as it was is still
// the writer's whole dump.
bool CompleteMinidump(HANDLE file, bool withDataSections);

}  // namespace deskaid
