#pragma once

#include "base/INameService.h"
#include "gateway/Configuration.h"

#include <atomic>
#include <map>

// Names of identifiers: "name@7" is the name that is unique for identifier 7; a name without "@" and digits at its end
// carries none.
class NameService : public INameService {
public:
    // The identifiers, which have to outlive the service.
    explicit NameService(const std::map<int, Identifier>& identifiers) : m_Identifiers(identifiers) {}

    EResult QualifyName(int id, EString* name) override;
    EResult ParseName(EString* name, int* id) override;
    EResult ParseNameText(const wchar_t* name, int* id) override;
    EResult GetUploadParameters(int id, EString* parameter1, EString* parameter2, EString* parameter3) override;
    EResult PreparePath(int id, EString* path) override;
    EResult CheckId(int id, bool* accepted) override;

    // Paths that could not be prepared so far.
    int Failures() const { return m_nFailures; }

    // Takes the identifier off the name, and returns it; -1, and the name unchanged, when it carries none.
    static int Split(EString& name);
    static EString Join(const EString& name, int id);

private:
    const std::map<int, Identifier>& m_Identifiers;
    std::atomic<int> m_nFailures{0};
};
