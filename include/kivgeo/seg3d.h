// Segment value: a start (m_pt[0]) and an end (m_pt[1]).
#ifndef KIVGEO_SEG3D_H
#define KIVGEO_SEG3D_H

#include <kivgeo/export.h>
#include <kivgeo/point3d.h>

#include <vector>

class CKivPolyLine;

class KIVGEO_API CKivSeg3d {
public:
    CKivSeg3d() = default;
    CKivSeg3d(const CKivPoint3d& a, const CKivPoint3d& b) : m_pt{a, b} {}
    CKivSeg3d(const CKivSeg3d& o) = default;
    CKivSeg3d& operator=(const CKivSeg3d& o) = default;
    virtual ~CKivSeg3d();

    // Same end points (point equality, 1e-6) in either direction; the stored
    // direction is tried first.
    static bool IsSameSeg(const CKivPoint3d& a1, const CKivPoint3d& a2, const CKivPoint3d& b1,
                          const CKivPoint3d& b2);
    // The four end points are coplanar within 1e-6, or three of them are collinear.
    static bool IsSamePlane(const CKivSeg3d& s, const CKivSeg3d& t);

    // Chains an unordered bag of segments into polylines. segs is consumed
    // (empty on return); lines is appended to. False, touching nothing, for
    // fewer than two segments. Pass 1 joins ends equal under point equality,
    // pass 2 joins open pieces whose ends lie within 0.0001.
    static bool LinkSeg(std::vector<CKivSeg3d>& segs, std::vector<CKivPolyLine>& lines);

    CKivPoint3d m_pt[2];
};

#endif
