// Singular value decomposition of a general real matrix (LINPACK dsvdc
// calling style) and the BLAS level 1 vector operations it uses. Every
// argument is passed by address; arrays are column-major and addressed from 1
// inside the routines; integers are of the Fortran-to-C `integer` width.
#pragma once

namespace vorn {

using integer = long;

// x: n by p matrix (leading dimension ldx), destroyed. s: min(n+1, p)
// singular values in descending order; e: p values (zero unless info != 0);
// u: n by ncu left singular vectors (leading dimension ldu); v: p by p right
// singular vectors (leading dimension ldv); work: n scratch values.
// job = ab: a = 0 no u, 1 all n left vectors, >= 2 the first min(n, p);
// b = 0 no v, 1 v. info = 0 on success, otherwise the index (from 1) of the
// singular value that did not converge within 30 iterations; values
// info+1 .. min(n, p) are then correct.
void dsvdc_(double* x, integer* ldx, integer* n, integer* p, double* s, double* e, double* u,
            integer* ldu, double* v, integer* ldv, double* work, integer* job, integer* info);

// y := da * x + y.
void daxpy_(integer* n, double* da, double* dx, integer* incx, double* dy, integer* incy);
// Dot product of x and y.
double ddot_(integer* n, double* dx, integer* incx, double* dy, integer* incy);
// Euclidean norm of x, computed with scaling against overflow.
double dnrm2_(integer* n, double* x, integer* incx);
// Applies the plane rotation (c, s): x := c x + s y, y := c y - s x.
void drot_(integer* n, double* dx, integer* incx, double* dy, integer* incy, double* c, double* s);
// Constructs the Givens rotation that zeroes b against a; a := r, b := z.
void drotg_(double* da, double* db, double* c, double* s);
// x := da * x.
void dscal_(integer* n, double* da, double* dx, integer* incx);
// Exchanges x and y.
void dswap_(integer* n, double* dx, integer* incx, double* dy, integer* incy);
// |a| with the sign of b (b >= 0 counts as positive).
double d_sign(double* a, double* b);

}  // namespace vorn
