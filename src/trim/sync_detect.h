#pragma once
// Finding the sync tone in a stretch of a capture: one FFT matched filter per channel
// against the synthesized tone, the channel with the clearest match (highest
// peak-to-sidelobe ratio) kept, its similarity to the tone measured, and, for a match
// that passes, each of the four chirps checked on its own near its expected place.
// Positions are in frames of the file; PSR and similarity are plain ratios.
#include <array>
#include <cstdint>
#include <vector>

#include "audio/wav.h"
#include "trim/matched_filter.h"
#include "trim/sync_tone.h"

namespace veltrane {

// Similarity a match must reach to count as the sync tone: the normalised correlation of
// the audio at the match with the tone. A real tone, even under heavy noise or after
// filtering, stays well above it; a broadband burst that merely stands out in the PSR
// resembles the tone far less.
inline constexpr double sync_similarity_threshold = 0.12;

struct sync_match {
    bool found = false;               // both thresholds passed
    std::uint64_t sample_offset = 0;  // frame where the best match of the tone begins
    std::int32_t channel = 0;         // channel of the best match; -1 when no channel was searched
    double psr = 0.0;                 // peak-to-sidelobe ratio of the best match
    double similarity = 0.0;          // normalised correlation with the tone, at least 0
    std::int32_t rep_count = 0;       // chirps checked one by one (4 when found, else 0)
    std::array<double, max_sync_chirps> rep_psr{};  // PSR of each chirp alone; 0 where not checked
};

// The tone and the transform buffers of one file's searches, kept between searches so
// that the tone is synthesized once and its transform is computed once per transform
// size (the leading and the trailing search of trim have the same length, and all
// channels share it).
struct sync_detector {
    std::uint32_t sample_rate_hz = 0;
    bool ready = false;                  // the tone could be synthesized
    std::vector<double> tone;            // the whole tone
    double tone_energy = 0.0;            // sum of its squared samples
    template_spectrum tone_spectrum;
    std::array<std::vector<double>, max_sync_chirps> chirps;  // each chirp alone
    std::array<template_spectrum, max_sync_chirps> chirp_spectra;
    std::vector<complex_value> work;     // transform buffer
};

// Synthesizes the built-in tone (and each chirp alone) at `sample_rate_hz`. On an
// allocation failure the detector stays not ready and every search gives the all-zero
// result.
void init_sync_detector(sync_detector& detector, std::uint32_t sample_rate_hz);

// Searches frames [start, start + length) (cut at the end of the file) of every channel.
// A stretch shorter than the tone, or a start at or past the end, gives the all-zero
// result (channel 0, PSR 0, not found). When no channel's transform buffers could be
// allocated the result names channel -1.
sync_match find_sync(sync_detector& detector, const wav_audio& audio, std::uint64_t start, std::uint64_t length,
                     double psr_threshold, double similarity_threshold);

// The same with a detector of its own.
sync_match find_sync(const wav_audio& audio, std::uint64_t start, std::uint64_t length, double psr_threshold,
                     double similarity_threshold);

}  // namespace veltrane
