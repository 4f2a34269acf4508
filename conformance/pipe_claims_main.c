/* Checks a running server against docs/pipe_protocol.md and docs/reader_protocol.md, claim by claim. Plain C
 * for Windows; a C compiler is all it needs, from the directory above this one:
 *
 *   gcc -I. -o pipe_claims.exe conformance/pipe_claims_main.c conformance/pipe_claims.c
 * conformance/pipe_client.c conformance/log_view.c
 *
 * usage: pipe_claims [--change] [--restart] [--idle] [--empty] [--restart-seconds N]
 *
 *   --change   also claims that change something: submits messages, and replaces the filters for a moment
 *   --restart  also claims about a restart: sends the present settings again
 *   --idle     also the ends of connections that are not used, which takes half a minute
 *   --empty    also claims that EMPTY THE LOG: ClearLog, and the limits of the capacity
 *   --restart-seconds N   how long a restart may take: 1 to 3600, 30 by default
 *
 * Prints a line for each claim, and as its last line how many hold. Exit code 0 when all of them do, 1 when
 * one does not, 2 for a usage error, 3 when there is no server.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "conformance/pipe_claims.h"

typedef struct {
  int holding;
  int failing;
} Counts;

static void Print(void* context, int holds, const char* name, const char* about) {
  Counts* const counts = (Counts*)context;
  ++*(holds ? &counts->holding : &counts->failing);
  printf("%-6s  pipes   %-16s  %s\n", holds ? "holds" : "FAILS", name, about);
  fflush(stdout);
}

static int ReadRestartSeconds(PipeClaimOptions* options, const char* text) {
  char* rest = NULL;
  const unsigned long seconds = strtoul(text, &rest, 10);
  if (text[0] < '0' || text[0] > '9' || *rest != 0 || seconds < 1 || seconds > 3600) return 0;
  options->restartSeconds = (unsigned)seconds;
  return 1;
}

static int ReadOptions(PipeClaimOptions* options, int count, char** arguments) {
  int i;
  for (i = 1; i < count; ++i) {
    if (strcmp(arguments[i], "--change") == 0) {
      options->change = 1;
    } else if (strcmp(arguments[i], "--restart") == 0) {
      options->restart = 1;
    } else if (strcmp(arguments[i], "--idle") == 0) {
      options->idle = 1;
    } else if (strcmp(arguments[i], "--empty") == 0) {
      options->empty = 1;
    } else if (strcmp(arguments[i], "--restart-seconds") != 0 || i + 1 == count ||
               !ReadRestartSeconds(options, arguments[++i])) {
      return 0;
    }
  }
  return 1;
}

int main(int count, char** arguments) {
  PipeClaimOptions options = {0, 0, 0, 0, 30};
  Counts counts = {0, 0};
  if (!ReadOptions(&options, count, arguments)) {
    fprintf(stderr, "usage: pipe_claims [--change] [--restart] [--idle] [--empty] [--restart-seconds N]\n");
    return 2;
  }
  if (!TamlogPipeClaims(&options, Print, &counts)) {
    fprintf(stderr, "pipe_claims: no server has its pipes open\n");
    return 3;
  }
  printf("%d claims hold, %d fail\n", counts.holding, counts.failing);
  return counts.failing > 0 ? 1 : 0;
}
