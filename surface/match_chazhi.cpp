#include <kivgeo/match_chazhi.h>

#include "surface/lu_solve.h"

#include <cmath>

namespace {

// Spline kernel. The 0.001 keeps the logarithm finite at r^2 = 0 and is part
// of the interpolant: the system and the evaluation both use it.
inline double SplineKernel(double r2)
{
    return r2 * std::log(r2 + 0.001);
}

inline double PlanDist2(const CKivPoint3d& a, double x, double y)
{
    const double dx = a.x - x, dy = a.y - y;
    return dx * dx + dy * dy;
}

} // namespace

CKivMatchChaZhi::CKivMatchChaZhi() : m_eType(eSpline), m_dEps(1e-6) {}

CKivMatchChaZhi::~CKivMatchChaZhi()
{
    ClearMatrix();
}

void CKivMatchChaZhi::SetBase(InterPolationType eType, const std::vector<CKivPoint3d>& vecPt)
{
    m_eType = eType;
    m_vecBasePt = vecPt;
    // Coefficients of an earlier base set never survive a new one.
    ClearMatrix();
    switch (m_eType) {
    case eSpline:
        CalcYangTiaoChaZhiMatrix(m_vecBasePt);
        break;
    case eRadialBasis:
        CalcJingXiangJiChaZhiMatrix(m_vecBasePt);
        break;
    default:
        break;
    }
}

void CKivMatchChaZhi::ChaZhiPt(CKivPoint3d& pt) const
{
    switch (m_eType) {
    case eSpline:
        CalcYangTiaoChaZhi(m_vecBasePt, pt);
        break;
    case eRadialBasis:
        CalcJingXingJiChaZhi(m_vecBasePt, pt);
        break;
    case eInverseDistance:
        CalcJiLiFanBiChaZhi(m_vecBasePt, pt);
        break;
    default:
        break;
    }
}

bool CKivMatchChaZhi::CalcYangTiaoChaZhiMatrix(const std::vector<CKivPoint3d>& vecPt)
{
    const long n = static_cast<long>(vecPt.size());
    if (n == 0) {
        return false;
    }
    const long size = n + 3;
    std::vector<double> matrix(static_cast<size_t>(size) * static_cast<size_t>(size), 0.0);
    std::vector<double> rhs(static_cast<size_t>(size), 0.0);
    m_vecCoef.assign(static_cast<size_t>(size), 0.0);

    // The kernel block is symmetric (the squared distance is the same both
    // ways round, bit for bit), so each pair is evaluated once.
    for (long i = 0; i < n; ++i) {
        double* row = &matrix[static_cast<size_t>(i * size)];
        const CKivPoint3d& pi = vecPt[static_cast<size_t>(i)];
        for (long j = i + 1; j < n; ++j) {
            const double k = SplineKernel(PlanDist2(vecPt[static_cast<size_t>(j)], pi.x, pi.y));
            row[j] = k;
            matrix[static_cast<size_t>(j * size + i)] = k;
        }
        row[n] = 1.0;
        row[n + 1] = pi.x;
        row[n + 2] = pi.y;
        matrix[static_cast<size_t>(n * size + i)] = 1.0;
        matrix[static_cast<size_t>((n + 1) * size + i)] = pi.x;
        matrix[static_cast<size_t>((n + 2) * size + i)] = pi.y;
        rhs[static_cast<size_t>(i)] = pi.z;
    }

    if (HSLUSystem(size, matrix, rhs, m_vecCoef) != 0) {
        ClearMatrix();
        return false;
    }
    return true;
}

bool CKivMatchChaZhi::CalcJingXiangJiChaZhiMatrix(const std::vector<CKivPoint3d>& vecPt)
{
    const long n = static_cast<long>(vecPt.size());
    std::vector<double> matrix(static_cast<size_t>(n) * static_cast<size_t>(n), 0.0);
    std::vector<double> rhs(static_cast<size_t>(n), 0.0);
    m_vecCoef.assign(static_cast<size_t>(n), 0.001);

    for (long i = 0; i < n; ++i) {
        double* row = &matrix[static_cast<size_t>(i * n)];
        const CKivPoint3d& pi = vecPt[static_cast<size_t>(i)];
        row[i] = 1.0;
        for (long j = i + 1; j < n; ++j) {
            const double k = std::sqrt(1.0 + PlanDist2(vecPt[static_cast<size_t>(j)], pi.x, pi.y));
            row[j] = k;
            matrix[static_cast<size_t>(j * n + i)] = k;
        }
        rhs[static_cast<size_t>(i)] = pi.z;
    }

    if (HSLUSystem(n, matrix, rhs, m_vecCoef) != 0) {
        ClearMatrix();
        return false;
    }
    return true;
}

void CKivMatchChaZhi::CalcYangTiaoChaZhi(const std::vector<CKivPoint3d>& vecBase, CKivPoint3d& pt) const
{
    const size_t n = vecBase.size();
    if (n == 0 || m_vecCoef.size() < n + 3) {
        return;
    }
    const double* c = m_vecCoef.data();
    double sum = 0.0;
    for (size_t i = 0; i < n; ++i) {
        const double r2 = PlanDist2(vecBase[i], pt.x, pt.y);
        sum += c[i] * r2 * std::log(r2 + 0.001);
    }
    pt.z = c[n] + c[n + 1] * pt.x + c[n + 2] * pt.y + sum;
}

void CKivMatchChaZhi::CalcJingXingJiChaZhi(const std::vector<CKivPoint3d>& vecBase, CKivPoint3d& pt) const
{
    // Evaluated with the plain distance r although the system was built with
    // sqrt(1 + r^2): the interpolant does not pass through the base heights.
    const size_t n = vecBase.size();
    if (n == 0 || m_vecCoef.size() < n) {
        return;
    }
    double sum = 0.0;
    for (size_t i = 0; i < n; ++i) {
        sum += m_vecCoef[i] * std::sqrt(PlanDist2(vecBase[i], pt.x, pt.y));
    }
    pt.z = sum;
}

void CKivMatchChaZhi::CalcJiLiFanBiChaZhi(const std::vector<CKivPoint3d>& vecBase, CKivPoint3d& pt) const
{
    if (vecBase.empty()) {
        return;
    }
    // The denominator starts at 1, not 0: far from every base point the
    // height tends toward 0 rather than toward the mean.
    double num = 0.0, den = 1.0;
    for (const CKivPoint3d& b : vecBase) {
        const double r2 = PlanDist2(b, pt.x, pt.y);
        if (r2 < m_dEps) {
            pt.z = b.z;
            return;
        }
        num += b.z / r2;
        den += 1.0 / r2;
    }
    pt.z = num / den;
}

int CKivMatchChaZhi::HSLUFactorization(long nSize, std::vector<double>& vecMatrix,
                                       std::vector<long>& vecPivot) const
{
    if (nSize < 1) {
        return 0;
    }
    const size_t n = static_cast<size_t>(nSize);
    if (vecMatrix.size() < n * n) {
        return -1;
    }
    vecPivot.resize(n);
    return KivLU::Factorize(nSize, vecMatrix.data(), vecPivot.data());
}

int CKivMatchChaZhi::HSLUSystem(long nSize, std::vector<double>& vecMatrix, std::vector<double>& vecRhs,
                                std::vector<double>& vecX) const
{
    std::vector<long> pivots;
    if (HSLUFactorization(nSize, vecMatrix, pivots) != 0) {
        return -1;
    }
    if (nSize < 1) {
        return 0;
    }
    const size_t n = static_cast<size_t>(nSize);
    if (vecRhs.size() < n) {
        return -1;
    }
    KivLU::Substitute(nSize, vecMatrix.data(), pivots.data(), vecRhs.data());
    vecX.assign(vecRhs.begin(), vecRhs.begin() + static_cast<std::ptrdiff_t>(n));
    return 0;
}

void CKivMatchChaZhi::ClearMatrix()
{
    m_vecCoef.clear();
}
