/* Types that name tasks on the board, of the messages and of the platform's calls. */
#ifndef INCLUDE_TASK_TYPES_H
#define INCLUDE_TASK_TYPES_H

#include <stdint.h>

/* Id of a task: the board's card bit shifted left by 24, or-ed with a 24-bit module id. */
typedef uint32_t aptid_t;
typedef int apcard_bit_t;

#endif
