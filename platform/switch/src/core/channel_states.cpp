#include <switch.h>

const char* switch_channel_state_name(switch_channel_state_t state) {
  static const char* const kNames[] = {
      "CS_NEW",     "CS_INIT",          "CS_ROUTING",   "CS_SOFT_EXECUTE", "CS_EXECUTE", "CS_EXCHANGE_MEDIA",
      "CS_PARK",    "CS_CONSUME_MEDIA", "CS_HIBERNATE", "CS_RESET",        "CS_HANGUP",  "CS_REPORTING",
      "CS_DESTROY", "CS_NONE"};
  return state < 0 || state > CS_NONE ? kNames[CS_NONE] : kNames[state];
}

const char* switch_channel_callstate2str(switch_channel_callstate_t callstate) {
  static const char* const kNames[] = {"DOWN", "DIALING",   "RINGING", "EARLY", "ACTIVE",
                                       "HELD", "RING_WAIT", "HANGUP",  "UNHELD"};
  return callstate < 0 || callstate > CCS_UNHELD ? kNames[CCS_DOWN] : kNames[callstate];
}
