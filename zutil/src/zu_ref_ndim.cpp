/*
 * zu_ref_ndim.cpp - by-reference forms of the n-dimensional table and
 * response surface operations.
 *
 * Each line names the form, its gfortran alias, the code its family gives a
 * missing argument, the number of text arguments and the adapters in the
 * caller's order (see zu_ref_forms.h). Results and reports are those of the
 * by-value operation; indices and dimensions count as they do there.
 */
#include "zu_ref_forms.h"

using zuref::In;
using zuref::Ptr;
using zuref::Text;

extern "C" {

ZU_REF_FORM(ZU_ndimCreate, zu_ndimcreate, ZU_NDIM_FAILED, 1, Ptr<int>, Text)
ZU_REF_FORM(ZU_ndimDelete, zu_ndimdelete, ZU_NDIM_FAILED, 0, In<int>)
ZU_REF_FORM(ZU_ndimGetDimensions, zu_ndimgetdimensions, ZU_NDIM_FAILED, 0, In<int>, Ptr<int>)
ZU_REF_FORM(ZU_ndimGetGridMin, zu_ndimgetgridmin, ZU_NDIM_FAILED, 0, In<int>, In<int>, Ptr<float>)
ZU_REF_FORM(ZU_ndimGetGridMax, zu_ndimgetgridmax, ZU_NDIM_FAILED, 0, In<int>, In<int>, Ptr<float>)
ZU_REF_FORM(ZU_ndimGetCurrentGridPoint, zu_ndimgetcurrentgridpoint, ZU_NDIM_FAILED, 0, In<int>, Ptr<int>, Ptr<float>)
ZU_REF_FORM(ZU_ndimInterp, zu_ndiminterp, ZU_NDIM_FAILED, 0, In<int>, Ptr<const float>, Ptr<float>)
ZU_REF_FORM(ZU_ndimAddGridPoint, zu_ndimaddgridpoint, ZU_NDIM_FAILED, 0, In<int>, In<int>, In<float>, In<float>, Ptr<int>)
ZU_REF_FORM(ZU_ndimSetValue, zu_ndimsetvalue, ZU_NDIM_FAILED, 0, In<int>, Ptr<const int>, In<float>)
ZU_REF_FORM(ZU_ndimWrite, zu_ndimwrite, ZU_NDIM_FAILED, 1, In<int>, Text)

ZU_REF_FORM(ZU_respCreate, zu_respcreate, ZU_RESP_BAD_ARGUMENT, 0, Ptr<int>, In<int>, In<int>, Ptr<const double>, In<double>, In<double>)
ZU_REF_FORM(ZU_respDelete, zu_respdelete, ZU_RESP_BAD_ARGUMENT, 0, In<int>)
ZU_REF_FORM(ZU_respAddPoint, zu_respaddpoint, ZU_RESP_BAD_ARGUMENT, 0, In<int>, Ptr<const double>, Ptr<const double>)
ZU_REF_FORM(ZU_respSurf, zu_respsurf, ZU_RESP_BAD_ARGUMENT, 0, In<int>, Ptr<const double>, Ptr<double>)
ZU_REF_FORM(ZU_respNorm, zu_respnorm, ZU_RESP_BAD_ARGUMENT, 0, In<int>, Ptr<const double>, Ptr<const double>, Ptr<double>)
ZU_REF_FORM(ZU_respCorr, zu_respcorr, ZU_RESP_BAD_ARGUMENT, 0, In<int>, Ptr<const double>, Ptr<const double>, Ptr<double>)

} // extern "C"
