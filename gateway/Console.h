#pragma once

#include <string>

// What the operator sees on stderr. Any thread may call; a line is never torn.
namespace Console {

// One line, with the program's name in front.
void Say(const std::string& line);

// One line as it stands.
void Print(const std::string& line);

// Shows or replaces the progress line, which stays below the lines that are printed. Only on a terminal.
void ShowProgress(const std::string& text);
void EndProgress();
bool HasTerminal();

} // namespace Console
