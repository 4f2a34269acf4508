// The functions of the C interface that need a server on this machine, for systems that have none. They
// cannot open a handle, so those that take one are never called with a valid one. The shared library exports
// the same functions on every system.

#include "client/include/tamlog.h"

#define TAMLOG_NOT_SUPPORTED_HERE(function, parameters) \
  tamlog_status TAMLOG_CALL function parameters {       \
    return TAMLOG_NOT_SUPPORTED;                        \
  }

TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_open, (const tamlog_client_options*, tamlog_client**))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_disconnect, (tamlog_client*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_ping, (tamlog_client*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_submit, (tamlog_client*, const tamlog_entry*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_get_settings, (tamlog_client*, tamlog_settings*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_set_settings, (tamlog_client*, const tamlog_settings*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_get_filter, (tamlog_client*, uint32_t, tamlog_filter*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_add_filter, (tamlog_client*, const tamlog_filter*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_clear_filters, (tamlog_client*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_get_log_file, (tamlog_client*, char*, uint64_t, uint64_t*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_get_default_log_file, (tamlog_client*, char*, uint64_t, uint64_t*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_set_log_file, (tamlog_client*, const char*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_client_clear_log, (tamlog_client*))

TAMLOG_NOT_SUPPORTED_HERE(tamlog_sender_open, (const tamlog_sender_options*, tamlog_sender**))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_sender_submit, (tamlog_sender*, const tamlog_entry*))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_sender_flush, (tamlog_sender*, uint32_t))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_sender_finish, (tamlog_sender*, uint32_t))
TAMLOG_NOT_SUPPORTED_HERE(tamlog_sender_get_counters, (tamlog_sender*, tamlog_sender_counters*))

TAMLOG_NOT_SUPPORTED_HERE(tamlog_reader_open_live, (const tamlog_reader_options*, tamlog_reader**))

void TAMLOG_CALL tamlog_client_close(tamlog_client* /*client*/) {}
void TAMLOG_CALL tamlog_sender_close(tamlog_sender* /*sender*/) {}

int32_t TAMLOG_CALL tamlog_view_is_spent(const tamlog_view* /*view*/) {
  return 1;
}
