#pragma once

// What a lock guards and who must hold it, for the compiler to check: clang's thread safety analysis. Other compilers see
// nothing. The attributes are explained in clang's manual, "Thread Safety Analysis".
#ifdef __clang__
#define KV_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define KV_THREAD_SAFETY(attribute)
#endif
