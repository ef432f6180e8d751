// Labels of USB disks: the name of a link below /dev/disk/by-label/ becomes readable UTF-8 again.
// In such a name a byte may stand as a backslash, an 'x' and two hexadecimal digits; Chinese labels
// in GB2312 arrive that way. The lines that tell how a label was taken go to standard output.
#ifndef UPDATE_DTT_CREATE_DISK_LABELS_H
#define UPDATE_DTT_CREATE_DISK_LABELS_H

#include <cstddef>

// Bytes of the buffer that a label is decoded in.
constexpr size_t LABEL_SIZE = 64;

// Returns 1 if `str` is to be decoded, 0 if it consists of hexadecimal digits or is null.
int check_is_gbk(char *str);

// Decodes `lable` in place. It stands in a buffer of at least LABEL_SIZE bytes that is zero behind
// the text, and does so afterwards. A text with an escape is replaced by what it decodes to, be it
// nothing; one without stays if less than half of it could be converted. Returns 0, or -1 for null.
int get_udisk_real_name(char *lable);

// Converts the `inlen` bytes at `inbuf` into the `outlen` bytes at `outbuf`, which are cleared.
// Returns 0 if all was converted, else -1; what was converted up to there is in `outbuf`.
int code_convert(char *from_charset, char *to_charset, char *inbuf, int inlen, char *outbuf,
                 int outlen);

// The same from GB2312 to UTF-8, and back.
int g2u(char *inbuf, size_t inlen, char *outbuf, size_t outlen);
int u2g(char *inbuf, int inlen, char *outbuf, int outlen);

#endif
