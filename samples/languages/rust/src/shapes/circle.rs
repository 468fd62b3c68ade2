use crate::shapes::square::Square;
use super::super::util::clamp as c;

#[derive(Default)]
pub struct Circle {
    pub r: f64,
}

pub fn longest<'a>(x: &'a str, y: &'a str) -> &'a str {
    let brace = '{';
    if x.len() > y.len() { x } else { y }
}
