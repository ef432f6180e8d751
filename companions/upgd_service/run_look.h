// Looking at the record of a run while another thread or process writes it.
#ifndef COMPANIONS_RUN_LOOK_H
#define COMPANIONS_RUN_LOOK_H

constexpr int LOOK_US = 100000; // between two looks

// Reads a number of the record, which is never half written.
inline int field(const int *value)
{
    return __atomic_load_n(value, __ATOMIC_RELAXED);
}

#endif
