// The parts of the C interface that need a server on this machine, on systems that have none. No handle of
// them ever exists, so there is nothing to do for the rest.

#include "client/include/tamlog.h"

tamlog_status TAMLOG_CALL tamlog_client_open(const tamlog_client_options* /*options*/,
                                             tamlog_client** /*client*/) {
  return TAMLOG_NOT_SUPPORTED;
}

void TAMLOG_CALL tamlog_client_close(tamlog_client* /*client*/) {}

tamlog_status TAMLOG_CALL tamlog_client_disconnect(tamlog_client* /*client*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_ping(tamlog_client* /*client*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_submit(tamlog_client* /*client*/, const tamlog_entry* /*entry*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_get_settings(tamlog_client* /*client*/,
                                                     tamlog_settings* /*settings*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_set_settings(tamlog_client* /*client*/,
                                                     const tamlog_settings* /*settings*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_get_filter(tamlog_client* /*client*/, uint32_t /*index*/,
                                                   tamlog_filter* /*filter*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_add_filter(tamlog_client* /*client*/,
                                                   const tamlog_filter* /*filter*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_clear_filters(tamlog_client* /*client*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_get_log_file(tamlog_client* /*client*/, char* /*buffer*/,
                                                     uint64_t /*capacity*/, uint64_t* /*length*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_get_default_log_file(tamlog_client* /*client*/, char* /*buffer*/,
                                                             uint64_t /*capacity*/, uint64_t* /*length*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_set_log_file(tamlog_client* /*client*/, const char* /*path*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_client_clear_log(tamlog_client* /*client*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_sender_open(const tamlog_sender_options* /*options*/,
                                             tamlog_sender** /*sender*/) {
  return TAMLOG_NOT_SUPPORTED;
}

void TAMLOG_CALL tamlog_sender_close(tamlog_sender* /*sender*/) {}

tamlog_status TAMLOG_CALL tamlog_sender_submit(tamlog_sender* /*sender*/, const tamlog_entry* /*entry*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_sender_flush(tamlog_sender* /*sender*/, uint32_t /*timeout_ms*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_sender_finish(tamlog_sender* /*sender*/, uint32_t /*timeout_ms*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_sender_get_counters(tamlog_sender* /*sender*/,
                                                     tamlog_sender_counters* /*counters*/) {
  return TAMLOG_NOT_SUPPORTED;
}

tamlog_status TAMLOG_CALL tamlog_reader_open_live(const tamlog_reader_options* /*options*/,
                                                  tamlog_reader** /*reader*/) {
  return TAMLOG_NOT_SUPPORTED;
}

int32_t TAMLOG_CALL tamlog_view_is_spent(const tamlog_view* /*view*/) {
  return 1;
}
