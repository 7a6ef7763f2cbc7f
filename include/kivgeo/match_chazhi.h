// Scattered-data interpolation: the height z at a plan position (x, y) from a
// set of base points, by a spline with a linear trend, by a radial basis or by
// inverse squared distance.
//
// The spline and the radial basis solve one dense linear system when the base
// points are set (memory grows with the square of their number, the solve
// with its cube); evaluation is then a weighted sum over all base points.
#ifndef KIVGEO_MATCH_CHAZHI_H
#define KIVGEO_MATCH_CHAZHI_H

#include <kivgeo/export.h>
#include <kivgeo/point3d.h>

#include <vector>

class KIVGEO_API CKivMatchChaZhi {
public:
    enum InterPolationType {
        eSpline = 0,          // K(r^2) = r^2 ln(r^2 + 0.001) plus the trend a + b x + c y
        eRadialBasis = 1,     // solved with sqrt(1 + r^2), evaluated with r
        eInverseDistance = 2, // weights 1 / r^2, with an extra 1 in the denominator
    };

    CKivMatchChaZhi();
    ~CKivMatchChaZhi();

    // Stores the method and a copy of the points, then solves the system the
    // method needs. A failed solve (an exactly zero pivot) leaves no
    // coefficients: evaluation then writes nothing.
    void SetBase(InterPolationType eType, const std::vector<CKivPoint3d>& vecPt);

    // Writes pt.z from pt.x and pt.y; leaves pt untouched when there is nothing
    // to evaluate (no base points, a failed solve, an unknown method).
    void ChaZhiPt(CKivPoint3d& pt) const;

private:
    // Objects are not copied.
    CKivMatchChaZhi(const CKivMatchChaZhi&) = delete;
    CKivMatchChaZhi& operator=(const CKivMatchChaZhi&) = delete;

    bool CalcYangTiaoChaZhiMatrix(const std::vector<CKivPoint3d>& vecPt);
    bool CalcJingXiangJiChaZhiMatrix(const std::vector<CKivPoint3d>& vecPt);
    void CalcYangTiaoChaZhi(const std::vector<CKivPoint3d>& vecBase, CKivPoint3d& pt) const;
    void CalcJingXingJiChaZhi(const std::vector<CKivPoint3d>& vecBase, CKivPoint3d& pt) const;
    void CalcJiLiFanBiChaZhi(const std::vector<CKivPoint3d>& vecBase, CKivPoint3d& pt) const;

    // Row-major size x size matrix, factorised in place (Crout order, partial
    // pivoting, no scaling). 0 on success, -1 when a pivot column is exactly
    // zero (or not a number).
    int HSLUFactorization(long nSize, std::vector<double>& vecMatrix, std::vector<long>& vecPivot) const;
    // Solves matrix * x = rhs; the matrix is factorised and rhs transformed in
    // place. 0 on success, -1 when singular (x untouched).
    int HSLUSystem(long nSize, std::vector<double>& vecMatrix, std::vector<double>& vecRhs,
                   std::vector<double>& vecX) const;
    void ClearMatrix();

    InterPolationType m_eType;
    std::vector<CKivPoint3d> m_vecBasePt;
    std::vector<double> m_vecCoef;
    // Coincidence threshold on the squared plan distance (inverse distance).
    double m_dEps;
};

#endif
