#pragma once

#include <string>

// What the operator sees on stderr. Any thread may call; a line is never torn.
namespace Console {

void Say(const std::string& line);   // with the program's name in front
void Print(const std::string& line); // as it stands

// Shows or replaces the progress line, which stays below the lines that are printed; an empty text removes it. Only a
// terminal gets one.
void ShowProgress(const std::string& text);

} // namespace Console
