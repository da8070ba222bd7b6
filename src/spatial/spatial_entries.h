// spatial_entries.h - the point-in-polygon entries.
#pragma once

#include "frame/base.h"

extern "C" {

VORN_INTERNAL ub8 vorn_spatial_pip_dydi(ub4 *const *res, const vorn_vec *xs, const double *const *ys,
                                        const double *const *px, const double *const *py);
VORN_INTERNAL ub8 vorn_spheric_pip_dydi(ub1 *const *res, const vorn_sphere_points *polygon,
                                        const vorn_sphere_points *points, void *unused4, void *unused5, double eps);

}  // extern "C"
