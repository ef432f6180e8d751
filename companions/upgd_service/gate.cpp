// Who may have an image applied.
#include "companions/upgd_service/gate.h"

#include "companions/signature/check.h"
#include "companions/upgd_service/configured.h"
#include "companions/upgd_service/console.h"
#include "update/dtt_update_common/header_text.h"
#include "update/dtt_update_common/platform_log.h"

#include <cstring>
#include <sstream>

static constexpr char PRODUCT_KEY[] = "product";
static constexpr char FLOOR_KEY[] = "fw_floor";
static constexpr char NOTED_KEY[] = "fw_floor_pending"; // a floor, a blank, and a version

std::string recorded_form(const char *version)
{
    std::istringstream words(version);
    std::string form;
    for (std::string word; std::getline(words, word, ' ');)
        form += word.empty() ? "" : (form.empty() ? "" : " ") + word;
    return form;
}

// Returns false with a sentence if there is a floor that is none. One that is not set is the
// lowest.
static bool read_floor(std::string *floor, firmware_version *version)
{
    *version = {};
    if (!read_setting(FLOOR_KEY, floor))
        return false;
    if (floor->empty() || parse_version(floor->c_str(), version))
        return true;
    return complain("%s: %s=%s is no version: set it anew", SETTINGS_PLACE, FLOOR_KEY,
                    floor->c_str());
}

static bool is_for_this_product(const char *name, const update_gate *gate)
{
    std::string product;
    if (!read_setting(PRODUCT_KEY, &product))
        return false;
    if (product == gate->said.product)
        return true;
    if (product.empty())
        return complain(
            "%s: the product of this device is not known: nothing was touched; say what "
            "it is with \"sysconfig set "
            "%s NAME\"",
            name, PRODUCT_KEY);
    return complain("%s: is for the product %s, and this device is a %s: nothing was touched", name,
                    gate->said.product, product.c_str());
}

static bool is_new_enough(const char *name, const update_header_t *header, const update_gate *gate)
{
    const header_text field = text_of(header->ih_version);
    const char *const text = field.text;
    firmware_version version;
    if (!parse_version(text, &version))
        return complain("%s: its version %s can't be compared: nothing was touched", name, text);
    std::string floor;
    firmware_version lowest;
    if (!read_floor(&floor, &lowest))
        return false;
    if (compare_versions(&version, &lowest) < 0)
        return complain(
            "%s: its version %s is below %s, the lowest that this device takes: nothing was "
            "touched",
            name, text, floor.c_str());
    if (compare_versions(&version, &gate->said.floor_version) < 0) {
        // It would be the last that this device takes, and not even that a second time.
        return complain(
            "%s: its version %s is below the floor %s of its own signature: nothing was "
            "touched",
            name, text, gate->said.floor);
    }
    return true;
}

static const char *comment_of_known_key(update_gate *gate)
{
    const public_key *const key = find_key(&gate->ring, &gate->signature.key);
    if (key == nullptr)
        return "was made with a key that this device does not have";
    gate->key = *key;
    const char *const fault = comment_fault(key, &gate->signature);
    return fault != nullptr ? fault : parse_statement(gate->signature.comment, &gate->said);
}

bool is_let_in(const char *name, const update_header_t *header, update_gate *gate)
{
    const char *fault = read_signature_of(name, &gate->signature);
    if (fault == nullptr)
        fault = comment_of_known_key(gate);
    if (fault != nullptr)
        return complain("%s%s: %s: nothing was touched; the image needs a good signature, or "
                        "--allow-unsigned",
                        name, SIGNATURE_SUFFIX, fault);
    return is_for_this_product(name, gate) &&
           (header == nullptr || is_new_enough(name, header, gate));
}

bool read_keys(const char *name, bool allow_unsigned, update_gate *gate)
{
    *gate = {};
    const key_fault fault = load_keys(KEY_DIRECTORY, &gate->ring);
    if (fault.why == nullptr && gate->ring.count == 0)
        return true;
    if (allow_unsigned) {
        complain(
            "WARNING: %s: NO SIGNATURE IS ASKED FOR (--allow-unsigned): whoever made it, it is "
            "taken",
            name);
        PLATFORM_LOG("WARNING: %s: no signature is asked for (--allow-unsigned)", name);
        return true;
    }
    const char *const impossible = check_impossible();
    if (impossible != nullptr)
        return complain("%s: %s: nothing was touched; --allow-unsigned takes any image", name,
                        impossible);
    if (fault.why != nullptr)
        return complain("%s: %s: nothing was touched; mend the device's keys", fault.where,
                        fault.why);
    gate->closed = true;
    return true;
}

static bool record(const char *key, const std::string &value, const char *next)
{
    const int result = write_setting(key, value);
    return result == 0 ||
           complain("%s=%s can't be recorded: %s: %s", key, value.c_str(), strerror(-result), next);
}

bool note_floor(const update_gate *gate, const char *version)
{
    std::string recorded;
    if (!gate->closed)
        return true;
    if (!read_setting(VERSION_KEY, &recorded))
        return false;
    // A version that stands there already tells nothing of the run.
    return recorded == recorded_form(version) ||
           record(NOTED_KEY, std::string(gate->said.floor) + " " + recorded_form(version),
                  "the image was not applied; mend that, and apply it again");
}

bool take_up_floor()
{
    std::string noted;
    std::string recorded;
    std::string floor;
    firmware_version lowest;
    firmware_version next;
    if (!read_setting(NOTED_KEY, &noted))
        return false;
    const size_t blank = noted.find(' ');
    if (blank == std::string::npos)
        return true;
    if (!read_setting(VERSION_KEY, &recorded))
        return false;
    if (noted.substr(blank + 1) != recorded)
        return true;
    if (!read_floor(&floor, &lowest))
        return false;
    floor = noted.substr(0, blank);
    if (parse_version(floor.c_str(), &next) && compare_versions(&next, &lowest) > 0 &&
        !record(FLOOR_KEY, floor, "set it by hand"))
        return false;
    return record(NOTED_KEY, "", "set it by hand");
}

bool raise_floor(const update_gate *gate)
{
    std::string floor;
    firmware_version lowest;
    if (!gate->closed)
        return true;
    if (!read_floor(&floor, &lowest))
        return false;
    return compare_versions(&gate->said.floor_version, &lowest) <= 0 ||
           record(FLOOR_KEY, gate->said.floor, "set it by hand");
}
