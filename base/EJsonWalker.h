#pragma once

#include "base/EJsonText.h"

#include <optional>
#include <string>
#include <string_view>

// Walks over the characters of a JSON text, knowing line and column, and names what it meets in messages. It takes the
// text for correct up to where it stands, and the text has to outlive it.
class EJsonWalker {
public:
    struct Fault {
        std::string m_Found;
        std::string m_Expected;
    };

    explicit EJsonWalker(std::string_view text); // behind a byte order mark: editors show it as no column

    EJsonPlace Place() const { return m_Place; }
    bool AtEnd() const { return m_nOffset >= m_Text.size(); }
    char Peek() const { return AtEnd() ? '\0' : m_Text[m_nOffset]; }

    void Step(std::size_t bytes = 1);
    void StepTo(std::size_t offset); // an offset beyond the end means the end

    void SkipBlank();         // white space and comments; a comment without an end is left standing
    bool Eat(char c);         // the character, and blanks before it; only the blanks when it is another one
    void SkipText();          // from an opening quote to behind the closing one
    std::string SkipNumber(); // the number as it is written

    // Moves from an opening quote to the first thing inside the text that is wrong, if anything is.
    std::optional<Fault> FindTextFault();

    std::string DescribeToken() const; // what stands here, as a message says it

    static std::string_view Clip(std::string_view text); // short enough for a message, cut between two characters

private:
    std::string_view Rest() const { return m_Text.substr(m_nOffset); }
    void SkipDigits();
    std::string DescribeByte() const;
    std::size_t CharacterLength() const;
    std::size_t EscapeLength() const;
    Fault DescribeEscape() const;

    std::string_view m_Text;
    std::size_t m_nOffset = 0;
    EJsonPlace m_Place;
};
