#pragma once

/// Makes the n-th allocation of this test program from now on fail, and only that one; 0: none.
void FailAllocation(unsigned int nth);
/// Whether the failure has happened.
bool AllocationFailed();
