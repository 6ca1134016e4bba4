// Interlocked operations: sequentially consistent atomic read-modify-write of a LONG.
#pragma once

#include "zqplatform/win/wintypes.h"

inline LONG InterlockedIncrement(LONG volatile* addend) {
    return __atomic_add_fetch(const_cast<LONG*>(addend), 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedDecrement(LONG volatile* addend) {
    return __atomic_sub_fetch(const_cast<LONG*>(addend), 1, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchange(LONG volatile* target, LONG value) {
    return __atomic_exchange_n(const_cast<LONG*>(target), value, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedExchangeAdd(LONG volatile* addend, LONG value) {
    return __atomic_fetch_add(const_cast<LONG*>(addend), value, __ATOMIC_SEQ_CST);
}
inline LONG InterlockedCompareExchange(LONG volatile* destination, LONG exchange, LONG comparand) {
    __atomic_compare_exchange_n(const_cast<LONG*>(destination), &comparand, exchange, false, __ATOMIC_SEQ_CST,
                                __ATOMIC_SEQ_CST);
    return comparand;
}
