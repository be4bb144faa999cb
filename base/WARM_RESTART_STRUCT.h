#pragma once

// What a service tells the kernel in a warm restart.
struct WARM_RESTART_STRUCT {
    // Names of the service's configuration sections, each ended by a null character, the list by one more. Made with
    // new wchar_t[]; belongs to the kernel.
    wchar_t* m_pszSections = nullptr;
};
