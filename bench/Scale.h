#pragma once

/// Reports the cost of an import of 1,000 cubes: requests, bytes, time and memory.
void Scale();
