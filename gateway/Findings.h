#pragma once

#include "base/EJsonText.h"

#include <string>
#include <vector>

// What is wrong, or doubtful, in the files of a configuration or in a line of the input.
struct Finding {
    // "FILE:LINE:COLUMN: warning: text", as compilers say it; without the place where the text says it all.
    std::string Format() const {
        const std::string place = m_File.empty() ? ""
                                                 : m_File + ':' + std::to_string(m_Place.m_nLine) + ':' +
                                                       std::to_string(m_Place.m_nColumn) + ": ";
        return place + (m_bWarning ? "warning: " : "") + m_Text;
    }

    bool m_bWarning;
    std::string m_File; // empty: nothing to name
    EJsonPlace m_Place;
    std::string m_Text;
};

class Findings {
public:
    // Where the findings that follow belong.
    void SetFile(const std::string& file) { m_File = file; }

    // A text that names the place by itself.
    void ErrorInWords(const std::string& text) {
        m_List.push_back({false, "", {}, text});
        m_bErrors = true;
    }
    void Error(const EJsonPlace& place, const std::string& text) { Add(false, place, text); }
    void Warning(const EJsonPlace& place, const std::string& text) { Add(true, place, text); }

    bool HasErrors() const { return m_bErrors; }
    const std::vector<Finding>& List() const { return m_List; }

private:
    void Add(bool warning, const EJsonPlace& place, const std::string& text) {
        m_List.push_back({warning, m_File, place, text});
        m_bErrors = m_bErrors || !warning;
    }

    std::string m_File;
    std::vector<Finding> m_List;
    bool m_bErrors = false;
};
