#pragma once

// Attributes of clang's thread safety analysis, which checks what a lock guards and who must hold it. The manual page
// "Thread Safety Analysis" explains them. Other compilers ignore them.
#ifdef __clang__
#define KV_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define KV_THREAD_SAFETY(attribute)
#endif
