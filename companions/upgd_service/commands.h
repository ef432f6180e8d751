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

int update_command(const char *image, char *dir, card_choice cards);
int watch_command();
int disks_command(bool json);
int backup_command(char *disk);
int restore_command(char *file, char *dir);
int flash_command(int type, char *file);

#endif
