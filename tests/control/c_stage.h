/* What a C program needs of the platform under the module: to set it up and to let things happen.
   One thread. */
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

void stageBegin(void); /* interfaces 1 and 2; the module is started */
void stageEnd(void);
void stageTrap(unsigned intf); /* traffic that asks for a login */
void stageEngineReports(const char* call, const uint32_t* values, size_t count);
void stageRefuse(const char* call);
void stageAddServiceProfile(const char* name); /* dynamic */
int stageStoresALogin(void);

int manageInC(void); /* the program; how many answers were not the expected ones */

#ifdef __cplusplus
}
#endif
