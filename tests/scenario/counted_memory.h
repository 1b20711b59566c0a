// How many blocks of memory of the process, its libraries included, are in use at the moment.
#pragma once

long blocksInUse();
