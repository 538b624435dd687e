// Whole frames of the canceller: beside peers, by signal, by settings.
#pragma once

/// A frame with an active reference beside WebRTC's canceller for the same audio, where the build
/// has it, and beside FFTW's three transforms of such a frame.
void compare_canceller();

/// Frames of signals that might take longer than speech's.
void compare_signals();

/// A frame with the tracking mode's switches on, beside a frame without.
void compare_tracking();

/// A frame of 1,000 instances that take turns, beside a frame of one.
void compare_instances();

/// Bytes of an instance that has run, with the tracking mode's switches too.
void print_memory();

/// The cost of a frame by frame size, taps, rate and number of instances in turn.
void cost_by_settings();
