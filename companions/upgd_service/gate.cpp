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
        return refuse("say what it is with \"sysconfig set product NAME\"",
                      "%s: the product of this device is not known", name);
    return refuse("", "%s: is for the product %s, and this device is a %s", name,
                  gate->said.product, product.c_str());
}

static bool is_new_enough(const char *name, const update_header_t *header, const update_gate *gate)
{
    const header_text field = text_of(header->ih_version);
    const char *const text = field.text;
    firmware_version version;
    if (!parse_version(text, &version))
        return refuse("", "%s: its version %s can't be compared", name, text);
    std::string floor;
    firmware_version lowest;
    if (!read_floor(&floor, &lowest))
        return false;
    if (compare_versions(&version, &lowest) < 0)
        return refuse("", "%s: its version %s is below %s, the lowest that this device takes", name,
                      text, floor.c_str());
    // It would be the last that this device takes, and not even that a second time.
    return compare_versions(&version, &gate->said.floor_version) >= 0 ||
           refuse("", "%s: its version %s is below the floor %s of its own signature", name, text,
                  gate->said.floor);
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
        return refuse("the image needs a good signature, or --allow-unsigned", "%s%s: %s", name,
                      SIGNATURE_SUFFIX, fault);
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
        return refuse("--allow-unsigned takes any image", "%s: %s", name, impossible);
    if (fault.why != nullptr)
        return refuse("mend the device's keys", "%s: %s", fault.where, fault.why);
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

// Raises the lowest version that the device takes, if `floor` is above it.
static bool raise_to(const std::string &floor)
{
    std::string former;
    firmware_version lowest;
    firmware_version next;
    return read_floor(&former, &lowest) &&
           (!parse_version(floor.c_str(), &next) || compare_versions(&next, &lowest) <= 0 ||
            record(FLOOR_KEY, floor, "set it by hand"));
}

bool take_up_floor()
{
    std::string noted;
    std::string recorded;
    if (!read_setting(NOTED_KEY, &noted))
        return false;
    const size_t blank = noted.find(' ');
    if (blank == std::string::npos)
        return true;
    if (!read_setting(VERSION_KEY, &recorded))
        return false;
    return noted.substr(blank + 1) != recorded ||
           (raise_to(noted.substr(0, blank)) && record(NOTED_KEY, "", "set it by hand"));
}

bool raise_floor(const update_gate *gate)
{
    return !gate->closed || raise_to(gate->said.floor);
}
