/* What a modem is set to and what it holds, as AT commands see and change it. */
#ifndef SIM_MODEM_STATE_H
#define SIM_MODEM_STATE_H

#include <array>
#include <chrono>
#include <functional>
#include <string>

#include "storage.h"
#include "submit.h"

namespace sim
{

/* Message service failures (3GPP TS 27.005, 3.2.5). */
enum cms_error {
    cms_none = 0,
    cms_operation_not_allowed = 302,
    cms_operation_not_supported = 303,
    cms_invalid_pdu_parameter = 304,
    cms_invalid_text_parameter = 305,
    cms_sim_not_inserted = 310,
    cms_invalid_index = 321,
    cms_memory_full = 322,
    cms_no_network = 331,
    cms_service_centre_unknown = 330,
    cms_unknown = 500
};

/* Equipment failures (3GPP TS 27.007, 9.2). */
enum cme_error { cme_operation_not_supported = 4, cme_sim_not_inserted = 10, cme_incorrect_parameters = 50 };

enum memory_use { memory_read, memory_write, memory_receive };

/* Everything that a power cycle puts back. */
struct modem_settings {
    bool echo = true;
    int error_detail = 0;                                  /* +CMEE */
    int format = 1;                                        /* +CMGF: 0 PDU, 1 text */
    std::array<int, 5> indications{};                      /* +CNMI: mode, mt, bm, ds, bfr */
    std::string characters = "GSM";                        /* +CSCS */
    std::array<std::string, 3> memories{"SM", "SM", "SM"}; /* +CPMS, by memory_use */
    int registration_reports = 0;                          /* +CREG, 0-2 */
    int packet_reports = 0;                                /* +CEREG, 0-2 */
};

struct modem_config {
    size_t sim_capacity = 20;
    size_t equipment_capacity = 50;
    std::string service_centre = "+31624000000";
    std::string own_number = "+31612345678";
    std::string handset_number = "+31687654321";
    bool generic = false;                /* "AT+CMGS" with its prompt instead of the vendor's send command */
    std::chrono::milliseconds delay{10}; /* before an answer */
    modem_settings power_up;
};

struct modem_state {
    explicit modem_state(const modem_config &c)
        : config(c), settings(c.power_up), service_centre(c.service_centre), sim(c.sim_capacity),
          equipment(c.equipment_capacity)
    {
    }

    message_store *store(const std::string &name) { return name == "SM" ? &sim : name == "ME" ? &equipment : nullptr; }
    message_store &store(memory_use use) { return *store(settings.memories[use]); }

    modem_config config;
    modem_settings settings;
    std::string service_centre; /* +CSCA, kept on the SIM */
    bool registered = true;
    bool sim_inserted = true;
    message_store sim, equipment;
    size_t prompted_length = 0; /* of the PDU that a prompt waits for */

    /* Hands a PDU to the network: hex text and the stated length. cms_none and the message's reference, or what is
     * wrong. */
    std::function<cms_error(const std::string &hex, size_t stated, unsigned &reference)> send;
};

} // namespace sim

#endif
