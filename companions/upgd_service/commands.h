// The commands of upgd_service. Each returns an exit status.
#ifndef COMPANIONS_COMMANDS_H
#define COMPANIONS_COMMANDS_H

// The module of this service; events of its runs go there.
enum { MODULE_SERVICE = 0xa3d00 };

// How the cards are answered for.
enum card_mode { CARDS_FLASH, CARDS_SIMULATE, CARDS_FAIL };

struct card_choice {
    card_mode mode;
    int number; // seconds to simulate, or the type that fails
};

// Where an image is while it is applied. Only one whose signature is checked is taken to the
// device.
enum image_reading { READ_TO_DEVICE, READ_IN_PLACE, READ_TO_LOOK };

// What an image has to be tested for first.
struct test_options {
    bool verify;         // its CRC
    bool allow_unsigned; // no signature, also where the device asks for one
    image_reading reading;
};

struct update_options {
    const char *image;
    char *dir; // null for the one that the image asks for
    card_choice cards;
    test_options test;
    bool force; // try what is bound to fail
};

int plan_command(const update_options *options);
int update_command(const update_options *options);
int watch_command();
int disks_command(bool json);
int backup_command(char *disk);
int restore_command(const char *file, char *dir, const test_options *test);
int flash_command(int type, char *file);

#endif
