/* install_update BUNDLE: what a media server does with a bundle that it has downloaded. Ends with 0
   when the update is installed, 1 when it is not, 2 when nobody knows. */
#include <stdio.h>

#include "zarn_update_client.h"

/* Nothing was done, or nobody knows what was done: who tries again at once may install twice. */
static int no_answer(int32_t result) {
  wchar_t words[ZARN_UPDATE_TEXT_UNITS];
  zarn_update_describe_result(result, words, ZARN_UPDATE_TEXT_UNITS);
  printf("no answer: %ls\n", words);
  return result == ZARN_UPDATE_INTERRUPTED || result == ZARN_UPDATE_TIMED_OUT || result == ZARN_UPDATE_OTHER
             ? 2
             : 1;
}

int wmain(int count, wchar_t** arguments) {
  zarn_update_options options = {sizeof(options)};
  zarn_update_answer answer = {sizeof(answer)};
  wchar_t words[ZARN_UPDATE_TEXT_UNITS];
  int32_t result;

  options.flags = ZARN_UPDATE_WAIT_FOR_RESTART; /* so that the next call finds somebody */
  options.time_limit_ms = 60 * 60 * 1000;
  result = zarn_update_install(count == 2 ? arguments[1] : L"", &options, &answer);
  if (result != ZARN_UPDATE_OK) return no_answer(result);

  zarn_update_describe_status(answer.status, words, ZARN_UPDATE_TEXT_UNITS);
  printf("status %ld, %ls\n", (long)answer.status, words);
  if (answer.restart == ZARN_UPDATE_RESTART_BACK) puts("the service is back");
  if (answer.restart == ZARN_UPDATE_RESTART_NOT_BACK) puts("the service has not come back yet");
  return answer.status == ZARN_UPDATE_STATUS_INSTALLED ||
                 answer.status == ZARN_UPDATE_STATUS_INSTALLED_REBOOT_REQUIRED ||
                 answer.status == ZARN_UPDATE_STATUS_REBOOT_INITIATED
             ? 0
             : 1;
}
