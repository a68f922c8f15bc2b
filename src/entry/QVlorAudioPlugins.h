#ifndef QVLORAUDIOPLUGINS_H
#define QVLORAUDIOPLUGINS_H

namespace QVlorAudioPlugins {

// The engine's front door: runs before any audio work and needs no
// application object. The application keeps the order Initialize, the run,
// Finalize.
int Initialize();
int Finalize();

} // namespace QVlorAudioPlugins

#endif
