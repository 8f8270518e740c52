#pragma once

#define SYNC_POLICY_FIFO 0x0
