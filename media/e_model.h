#pragma once

/// The E-model of ITU-T G.107, narrow-band, in tenths, with its default values for everything that is not given.
namespace e_model {

/// A score that is not known.
constexpr int unknown = -1;

/// The transmission rating R, 0 to 932, of a codec of the media command. `loss_q8`: packets lost or discarded in 1/256.
/// Unknown for a codec that G.113 Appendix I has no values of, or none that say how it bears losses.
int rating(int codec, int loss_q8, int one_way_ms);
/// Mean opinion score, 10 to 45 (Annex B); unknown for an unknown rating.
int opinion(int rating);

}  // namespace e_model
