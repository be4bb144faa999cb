#pragma once

// What a service tells the kernel in a warm restart.
struct WARM_RESTART_STRUCT {
    // Names of the service's configuration sections, each with a null character, and one more after the last. Allocated
    // with new wchar_t[]; the kernel frees it.
    wchar_t* m_pszSections = nullptr;
};
