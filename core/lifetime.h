// Library-wide state outside the image table lets go of what it holds when
// the application destroys every image.
//
// Modules whose state holds resources between calls (open file transfers)
// register a release at start-up; PIX_image_destroy(PIX_ALL_IMAGES) runs
// every one, so that nothing the library opened outlives the images.
#pragma once

namespace pix {

using ReleaseFn = void (*)() noexcept;

// Returns true, so that a module can register from a namespace-scope
// initialiser: `const bool registered = register_release(&forget);`.
bool register_release(ReleaseFn release) noexcept;
void run_releases() noexcept;

}  // namespace pix
