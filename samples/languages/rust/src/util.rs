use crate::*;

pub fn clamp(v: f64) -> f64 {
    v.max(0.0)
}
