/* The claims about a running server, for programs that contain them. docs/pipe_protocol.md and
 * docs/reader_protocol.md state them. */
#ifndef TAMLOG_PIPE_CLAIMS_H
#define TAMLOG_PIPE_CLAIMS_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
  int change;  /* also claims that change something: messages are submitted, filters replaced for a moment */
  int restart; /* also claims about a restart: the present settings are sent again */
  int idle;    /* also the ends of connections that are not used, which takes half a minute */
  int empty;   /* also claims that EMPTY THE LOG: ClearLog, and the limits of the capacity */
  unsigned restartSeconds; /* how long a restart may take, 1 to 3600 */
} PipeClaimOptions;

/* Receives each claim as it is tried: whether it holds, its name, and what it says. */
typedef void (*ClaimFunction)(void* context, int holds, const char* name, const char* about);

/* Tries the claims on the server of this machine, and calls `claimed` for each one. Returns 0 when no server
 * has its pipes open. Not thread-safe. */
int TamlogPipeClaims(const PipeClaimOptions* options, ClaimFunction claimed, void* context);

#ifdef __cplusplus
}
#endif

#endif
