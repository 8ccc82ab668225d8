// Library-wide state outside the image table lets go of what it holds when
// the application destroys every image.
//
// State that holds resources between calls (an open file transfer, a
// dispatcher in the middle of a file) derives from Releasable: it registers
// itself when it is made, and PIX_image_destroy(PIX_ALL_IMAGES) calls its
// release(), so that nothing the library opened outlives the images.
#pragma once

namespace pix {

class Releasable {
 public:
  Releasable(const Releasable&) = delete;
  Releasable& operator=(const Releasable&) = delete;
  // Back to the state of a fresh start; closes what is open.
  virtual void release() noexcept = 0;

 protected:
  Releasable() noexcept;
  // Leaves the registry, so that a release after the end of the program's
  // statics (an application destroying its images at exit) skips it.
  ~Releasable();
};

void run_releases() noexcept;

}  // namespace pix
