// The standard streams of a program.
#ifndef UPDATE_DTT_UPDATE_COMMON_STANDARD_STREAMS_H
#define UPDATE_DTT_UPDATE_COMMON_STANDARD_STREAMS_H

// To be called ahead of everything else. A file that the program opens must not become one of the
// streams that its caller has closed: what is printed would go into it.
void open_standard_streams();

#endif
