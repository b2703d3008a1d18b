// The trust anchor that certificate chains end in, for the rest of a run.
#pragma once

// The RKI anchor while no production-signing certificate issued by "KeySigning" is known, the
// bundle from then on. The KBPK requests carry it too, as their trust-anchor flag.
enum class Anchor { rki, bundle };

// The one owner of the run's anchor: one way to read it, one way to change it. Whoever changes it
// says why at the call.
class TrustAnchor {
public:
    [[nodiscard]] Anchor get() const { return anchor_; }
    void set(Anchor anchor) { anchor_ = anchor; }

private:
    Anchor anchor_ = Anchor::bundle;
};

// The run's anchor: set by the start-up check from the stored production-signing certificate, and
// afterwards only where a verification or a restore finds one from "KeySigning".
extern TrustAnchor trust_anchor;
