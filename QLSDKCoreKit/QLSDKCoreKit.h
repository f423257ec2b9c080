#pragma once

/// Umbrella header: start here.
