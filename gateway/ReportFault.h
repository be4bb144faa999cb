#pragma once

#include <string>

// Reads a line that has been refused once more, with the places of what stands in it: what is wrong, and where. Empty
// when it finds nothing, which is a fault of the one that has refused it.
std::string FindReportFault(const std::string& line);
