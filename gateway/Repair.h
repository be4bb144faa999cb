#pragma once

struct LogFile;

// Puts right what a kill may leave at the end of the file that a log file was writing: a row that the system had only
// taken in part, or the end of an HTML page that the next rows are to stand before. Before the module starts; says on
// stderr what it has cut off.
void RepairCurrentFile(const LogFile& file);
