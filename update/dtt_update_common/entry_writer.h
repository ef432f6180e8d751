// Appending entries to an image that is being built.
#ifndef UPDATE_DTT_UPDATE_COMMON_ENTRY_WRITER_H
#define UPDATE_DTT_UPDATE_COMMON_ENTRY_WRITER_H

#include <cstddef>

// Size of the buffer for a link's "path;target" text, terminator included.
constexpr size_t LINK_NAME_SIZE = 128;

// Why something of the tree is not in the image. Most of it is as the format has it, and no
// failure.
enum left_out_cause {
    LEFT_LONG_LINK,       // that does not fit LINK_NAME_SIZE with its target
    LEFT_LINK_TO_NOWHERE, // on the machine that builds, like those to a device or an empty file
    LEFT_LINK_TO_DEVICE,  // or to what else has no size
    LEFT_LINK_TO_EMPTY_FILE,
    LEFT_EMPTY_FILE,
    LEFT_EMPTY_DIRECTORY,
    LEFT_DEVICE, // or a pipe or a socket
    LEFT_UNREADABLE,
    LEFT_OUT_CAUSES
};

// How often, since begin_image.
extern unsigned int left_out[LEFT_OUT_CAUSES];

// Starts the bookkeeping of a new image, which holds the header alone. Every walk does it.
void begin_image(void);

// Whether the image can't be finished since begin_image: an entry was begun and not completed, the
// next one would have taken the image past IMAGE_SIZE_MAX, or the tree could not be read. A trace
// line has told why.
[[nodiscard]] bool image_is_broken(void);

// Gives the image up at `path` with the errno `error`, in the name of the operation `func`: it
// holds half an entry, or would lack a part of the tree without a word. Returns -1, with `error` in
// errno.
[[nodiscard]] int break_image(const char *func, const char *path, int error);

// Appends one entry of type `type` for the file or link at `path` to `dst_fd`. For a link,
// `filename` is its path, a ';' and its target, and its name comes from there alone; it is not
// looked at otherwise. Returns 0, or -1 if there is no whole new entry: either nothing was written,
// because the file (or what the link leads to) could not be opened, does not tell its size or is
// empty, or the image is broken.
[[nodiscard]] int write_file(int dst_fd, int type, const char *path, const char *filename);

// The text behind the first `c` of `s` that no '.' follows, inside `s`, or null if there is none.
char *first_char_is(const char *s, int c);

#endif
